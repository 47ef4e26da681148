#pragma once

#include <cstdint>
#include <memory>

#include "platform/event.h"
#include "transport/ble/winrt_delegate.h"

namespace tarvik::winrt {

inline constexpr char kGivenUp[] = "The operation was given up";

// The end of one operation. Shared with the operation's delegate, which may be called after the
// waiter has given up.
class Completion {
public:
    Completion();
    ~Completion();
    Completion(const Completion&) = delete;
    Completion& operator=(const Completion&) = delete;

    void Set(AsyncState state);
    // Throws a BleError unless the operation succeeds in time and before `give_up`, which may be
    // null, is set. Cancels an operation that it does not wait for any longer.
    void Wait(const Pointer<AsyncInfo>& operation, std::int32_t limit_ms, OsEvent* give_up);

private:
    OsEvent* event_;
    AsyncState state_ = AsyncState::kStarted;  // written before the event is set
};

// Waits for the operation and returns its result, of which the caller owns one reference. Not for
// threads in a single-threaded apartment.
template <typename Result>
Result Await(const Pointer<AsyncOperation<Result>>& operation, std::int32_t limit_ms,
             OsEvent* give_up = nullptr) {
    if (!operation) Check(E_POINTER);
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
