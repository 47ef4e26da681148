#include "transport/ble/winrt_async.h"

#include "transport/ble/ble_radio.h"

namespace tarvik::winrt {

Completion::Completion() : event_(OsEventCreate(EventReset::kManual)) {
    if (event_ == nullptr) Check(HRESULT_FROM_WIN32(::GetLastError()));
}

Completion::~Completion() { OsEventClose(event_); }

void Completion::Set(AsyncState state) {
    state_ = state;
    OsEventSet(event_);
}

void Completion::Wait(const Pointer<AsyncInfo>& operation, std::int32_t limit_ms,
                      OsEvent* give_up) {
    const int over = give_up == nullptr ? (OsEventWait(event_, limit_ms) ? 0 : -1)
                                        : OsEventWaitEither(event_, give_up, limit_ms);
    if (over != 0) {
        operation.Get()->table->Cancel(operation.Get());
        throw BleError(over > 0 ? kGivenUp
                                : "The system did not finish the operation within " +
                                      std::to_string(limit_ms) + " ms");
    }
    if (state_ == AsyncState::kCompleted) return;
    if (state_ == AsyncState::kError) {
        HRESULT error = S_OK;
        Call(operation, &AsyncInfo::Table::get_ErrorCode, &error);
        Check(error);
    }
    throw BleError("The system cancelled the operation");
}

}  // namespace tarvik::winrt
