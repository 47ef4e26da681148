#include "platform/thread.h"

#include <windows.h>

#include <cstring>
#include <new>

#include "platform/thread_list.h"

namespace tarvik {

struct OsThread final : ListedThread {
    ~OsThread() override {
        if (handle != nullptr) ::CloseHandle(handle);
    }
    // The handle is signalled once the thread has left the library, and all other code.
    bool HasEnded() override { return ::WaitForSingleObject(handle, 0) == WAIT_OBJECT_0; }
    bool IsCurrent() const override { return id == ::GetCurrentThreadId(); }

    HANDLE handle = nullptr;
    DWORD id = 0;
};

namespace {

struct ThreadStart {
    OsThreadEntry entry;
    void* argument;
};

DWORD WINAPI Run(void* argument) {
    const ThreadStart start = *static_cast<ThreadStart*>(argument);
    delete static_cast<ThreadStart*>(argument);
    start.entry(start.argument);
    return 0;
}

// Missing before Windows 10 1607: looked up at run time, so that the library also loads there.
using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);

SetDescription FindSetDescription() {
    FARPROC found = ::GetProcAddress(::GetModuleHandleA("kernel32.dll"), "SetThreadDescription");
    if (found == nullptr) {
        const HMODULE base = ::GetModuleHandleA("kernelbase.dll");
        if (base != nullptr) found = ::GetProcAddress(base, "SetThreadDescription");
    }
    return reinterpret_cast<SetDescription>(reinterpret_cast<void*>(found));
}

const SetDescription set_description = FindSetDescription();

void Describe(HANDLE handle, const char* description) {
    if (set_description == nullptr) return;
    wchar_t text[64];
    if (::MultiByteToWideChar(CP_UTF8, 0, description, -1, text, 64) != 0) {
        set_description(handle, text);
    }
}

}  // namespace

namespace {

// Suspended until the list has it, so that the library stays loaded for it.
HANDLE CreateSuspended(OsThreadEntry entry, void* argument, DWORD* id) {
    auto* start = new (std::nothrow) ThreadStart{entry, argument};
    if (start == nullptr) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const HANDLE handle = ::CreateThread(nullptr, 0, &Run, start, CREATE_SUSPENDED, id);
    if (handle == nullptr) {
        const DWORD error = ::GetLastError();
        delete start;
        ::SetLastError(error);
    }
    return handle;
}

}  // namespace

OsThread* OsThreadStart(OsThreadEntry entry, void* argument, const char* description) {
    auto* thread = new (std::nothrow) OsThread;
    if (thread == nullptr) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    thread->handle = CreateSuspended(entry, argument, &thread->id);
    if (thread->handle == nullptr) {
        const DWORD error = ::GetLastError();
        delete thread;
        ::SetLastError(error);
        return nullptr;
    }
    ListThread(thread);
    Describe(thread->handle, description);
    ::ResumeThread(thread->handle);
    return thread;
}

bool OsThreadJoin(OsThread* thread, std::int32_t timeout_ms) {
    const DWORD limit = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
    return ::WaitForSingleObject(thread->handle, limit) == WAIT_OBJECT_0;
}

bool OsThreadTerminate(OsThread* thread) {
    ::TerminateThread(thread->handle, 0);
    return true;
}

void OsThreadClose(OsThread* thread) {
    if (thread != nullptr) CloseListedThread(thread);
}

bool OsThreadIsCurrent(const OsThread* thread) { return thread != nullptr && thread->IsCurrent(); }

void* OsThreadHandle(const OsThread* thread) { return thread->handle; }

std::uint32_t OsCurrentThreadId() { return ::GetCurrentThreadId(); }

namespace {

// The compiler's thread-local variables would also take slots, but not return them when the library
// is unloaded.
const DWORD thread_value_slot = ::TlsAlloc();

__attribute__((destructor(101))) void FreeThreadValueSlot() { ::TlsFree(thread_value_slot); }

}  // namespace

// Reading a slot clears the thread's last error, which callers may still want.
std::intptr_t OsThreadValue() {
    const DWORD error = ::GetLastError();
    void* value = ::TlsGetValue(thread_value_slot);
    ::SetLastError(error);
    return reinterpret_cast<std::intptr_t>(value);
}

void OsSetThreadValue(std::intptr_t value) {
    ::TlsSetValue(thread_value_slot, reinterpret_cast<void*>(value));
}

std::int32_t OsLastError() { return static_cast<std::int32_t>(::GetLastError()); }

void OsSetLastError(std::int32_t error) { ::SetLastError(static_cast<DWORD>(error)); }

}  // namespace tarvik
