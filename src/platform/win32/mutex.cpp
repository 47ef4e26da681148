#include "platform/mutex.h"

#include <windows.h>

namespace tarvik {

namespace {

// The kernel's handle is the object itself.
HANDLE Handle(const OsMutex* mutex) { return const_cast<OsMutex*>(mutex); }

}  // namespace

OsMutex* OsMutexCreate() { return static_cast<OsMutex*>(::CreateMutexA(nullptr, FALSE, nullptr)); }

MutexWait OsMutexLock(OsMutex* mutex, std::int32_t timeout_ms) {
    const DWORD limit = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
    switch (::WaitForSingleObject(Handle(mutex), limit)) {
        case WAIT_OBJECT_0:
            return MutexWait::kAcquired;
        case WAIT_ABANDONED:
            return MutexWait::kAbandoned;
        default:
            return MutexWait::kTimeout;
    }
}

void OsMutexUnlock(OsMutex* mutex) { ::ReleaseMutex(Handle(mutex)); }

void OsMutexClose(OsMutex* mutex) {
    if (mutex != nullptr) ::CloseHandle(Handle(mutex));
}

void* OsMutexHandle(const OsMutex* mutex) { return Handle(mutex); }

}  // namespace tarvik
