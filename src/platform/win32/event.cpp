#include "platform/event.h"

#include <windows.h>

namespace tarvik {

// The kernel's handle is the object itself.

namespace {

DWORD Limit(std::int32_t timeout_ms) {
    return timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
}

}  // namespace

OsEvent* OsEventCreate(EventReset reset) {
    const BOOL manual = reset == EventReset::kManual ? TRUE : FALSE;
    return static_cast<OsEvent*>(::CreateEventA(nullptr, manual, FALSE, nullptr));
}

void OsEventSet(OsEvent* event) { ::SetEvent(event); }

void OsEventReset(OsEvent* event) { ::ResetEvent(event); }

bool OsEventWait(OsEvent* event, std::int32_t timeout_ms) {
    return ::WaitForSingleObject(event, Limit(timeout_ms)) == WAIT_OBJECT_0;
}

int OsEventWaitEither(OsEvent* first, OsEvent* second, std::int32_t timeout_ms) {
    const HANDLE both[] = {first, second};
    switch (::WaitForMultipleObjects(2, both, FALSE, Limit(timeout_ms))) {
        case WAIT_OBJECT_0:
            return 0;
        case WAIT_OBJECT_0 + 1:
            return 1;
        default:
            return -1;
    }
}

void OsEventClose(OsEvent* event) {
    if (event != nullptr) ::CloseHandle(event);
}

}  // namespace tarvik
