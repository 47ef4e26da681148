#include "platform/win32/system_locks.h"

#include <malloc.h>

#include <new>

#include "platform/thread.h"

namespace tarvik {

namespace {

// Exported by ntdll.dll on every Windows, without a header.
using LockLoader = LONG(WINAPI*)(ULONG flags, ULONG* outcome, ULONG_PTR* cookie);
using UnlockLoader = LONG(WINAPI*)(ULONG flags, ULONG_PTR cookie);

template <typename Function>
Function FindInNtdll(const char* name) {
    const FARPROC found = ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), name);
    return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

const auto lock_loader = FindInNtdll<LockLoader>("LdrLockLoaderLock");
const auto unlock_loader = FindInNtdll<UnlockLoader>("LdrUnlockLoaderLock");

bool LoaderIsFree() {
    constexpr ULONG kOnlyTry = 2;
    constexpr ULONG kTaken = 1;
    if (lock_loader == nullptr || unlock_loader == nullptr) return true;
    ULONG outcome = 0;
    ULONG_PTR cookie = 0;
    if (lock_loader(kOnlyTry, &outcome, &cookie) != 0 || outcome != kTaken) return false;
    unlock_loader(0, cookie);
    return true;
}

// The process's heap, which the system uses too, and the C runtime's if that is another one.
struct Heaps {
    HANDLE process = ::GetProcessHeap();
    HANDLE runtime = reinterpret_cast<HANDLE>(::_get_heap_handle());

    void Lock() const {
        ::HeapLock(process);
        if (runtime != process) ::HeapLock(runtime);
    }
    void Unlock() const {
        if (runtime != process) ::HeapUnlock(runtime);
        ::HeapUnlock(process);
    }
};

}  // namespace

SystemLocks::~SystemLocks() {
    for (HANDLE event : {take_, taken_, release_}) {
        if (event != nullptr) ::CloseHandle(event);
    }
}

bool SystemLocks::IsComplete() const {
    return take_ != nullptr && taken_ != nullptr && release_ != nullptr;
}

void SystemLocks::DropReference() {
    if (references_.fetch_sub(1) == 1) delete this;
}

SystemLocks* SystemLocks::Start() {
    auto* locks = new (std::nothrow) SystemLocks;
    if (locks == nullptr) return nullptr;
    OsThread* thread =
        locks->IsComplete() ? OsThreadStart(&Run, locks, "Tarvik SystemLocks") : nullptr;
    if (thread == nullptr) {
        delete locks;
        return nullptr;
    }
    OsThreadClose(thread);
    return locks;
}

void SystemLocks::Close() {
    closing_ = true;
    ::SetEvent(release_);
    ::SetEvent(take_);
    DropReference();
}

void SystemLocks::Run(void* self) {
    auto* locks = static_cast<SystemLocks*>(self);
    locks->Serve();
    locks->DropReference();
}

void SystemLocks::Serve() {
    const Heaps heaps;
    for (;;) {
        ::WaitForSingleObject(take_, INFINITE);
        if (closing_) return;
        loader_is_free_ = LoaderIsFree();
        heaps.Lock();
        ::SetEvent(taken_);
        ::WaitForSingleObject(release_, INFINITE);
        heaps.Unlock();
    }
}

bool SystemLocks::Take(std::uint32_t patience_ms) {
    asked_ = true;
    ::SetEvent(take_);
    has_taken_ = ::WaitForSingleObject(taken_, patience_ms) == WAIT_OBJECT_0;
    return has_taken_ && loader_is_free_;
}

bool SystemLocks::Release(std::uint32_t patience_ms) {
    if (!asked_) return true;
    if (!has_taken_ && ::WaitForSingleObject(taken_, patience_ms) != WAIT_OBJECT_0) return false;
    asked_ = false;
    ::SetEvent(release_);
    return true;
}

}  // namespace tarvik
