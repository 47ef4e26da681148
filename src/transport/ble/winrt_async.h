#pragma once

#include <cstdint>
#include <memory>

#include "platform/event.h"
#include "transport/ble/winrt_delegate.h"

namespace tarvik::winrt {

// The end of one operation. The operation's delegate has a share of it, as it may come too late for
// the one who waits.
class Completion {
public:
    Completion();
    ~Completion();
    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;

    void Set(AsyncState state);
    // Throws a BleError unless the operation succeeds within the time, and before `give_up` is set
    // if there is such an event. Otherwise it is cancelled.
    void Wait(const Pointer<AsyncInfo>& operation, std::int32_t limit_ms, OsEvent* give_up);

private:
    OsEvent* event_;
    AsyncState state_ = AsyncState::kStarted;  // before the event is set
};

// Waits for the operation and returns its result, a reference of which belongs to the caller. Not
// for threads in a single-threaded apartment.
template <typename Result>
Result Await(const Pointer<AsyncOperation<Result>>& operation, std::int32_t limit_ms,
             OsEvent* give_up = nullptr) {
    using CompletedDelegate = Delegate<AsyncOperation<Result>*, AsyncState>;
    const auto completion = std::make_shared<Completion>();
    auto* delegate = new CompletedDelegate(
        AsyncOperation<Result>::kCompletedIid,
        [completion](AsyncOperation<Result>*, AsyncState state) { completion->Set(state); });
    const HRESULT accepted = operation.Get()->table->put_Completed(operation.Get(), delegate);
    delegate->Release();
    Check(accepted);
    completion->Wait(operation.template Query<AsyncInfo>(), limit_ms, give_up);
    Result result{};
    Call(operation, &AsyncOperation<Result>::Table::GetResults, &result);
    return result;
}

}  // namespace tarvik::winrt
