#include "platform/semaphore.h"

#include <windows.h>

namespace tarvik {

// The kernel's handle is the object itself.

OsSemaphore* OsSemaphoreCreate(std::int32_t initial, std::int32_t maximum) {
    return static_cast<OsSemaphore*>(::CreateSemaphoreA(nullptr, initial, maximum, nullptr));
}

SemaphoreWait OsSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms) {
    const DWORD limit = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
    switch (::WaitForSingleObject(semaphore, limit)) {
        case WAIT_OBJECT_0:
            return SemaphoreWait::kTaken;
        case WAIT_TIMEOUT:
            return SemaphoreWait::kTimeout;
        default:
            return SemaphoreWait::kFailed;
    }
}

bool OsSemaphoreRelease(OsSemaphore* semaphore) {
    return ::ReleaseSemaphore(semaphore, 1, nullptr) != 0;
}

void OsSemaphoreClose(OsSemaphore* semaphore) {
    if (semaphore != nullptr) ::CloseHandle(semaphore);
}

}  // namespace tarvik
