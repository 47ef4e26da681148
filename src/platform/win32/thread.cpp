#include "platform/thread.h"

#include <windows.h>

#include <cstring>
#include <new>

namespace tarvik {

struct OsThread {
    HANDLE handle;
    DWORD id;
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
    if (::MultiByteToWideChar(CP_ACP, 0, description, -1, text, 64) != 0) {
        set_description(handle, text);
    }
}

}  // namespace

OsThread* OsThreadStart(OsThreadEntry entry, void* argument, const char* description) {
    auto* thread = new (std::nothrow) OsThread{};
    auto* start = new (std::nothrow) ThreadStart{entry, argument};
    if (thread != nullptr && start != nullptr) {
        thread->handle = ::CreateThread(nullptr, 0, &Run, start, 0, &thread->id);
        if (thread->handle != nullptr) {
            Describe(thread->handle, description);
            return thread;
        }
    } else {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    const DWORD error = ::GetLastError();
    delete start;
    delete thread;
    ::SetLastError(error);
    return nullptr;
}

bool OsThreadJoin(OsThread* thread, std::int32_t timeout_ms) {
    const DWORD limit = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
    return ::WaitForSingleObject(thread->handle, limit) == WAIT_OBJECT_0;
}

void OsThreadTerminate(OsThread* thread) { ::TerminateThread(thread->handle, 0); }

void OsThreadClose(OsThread* thread) {
    if (thread == nullptr) return;
    ::CloseHandle(thread->handle);
    delete thread;
}

bool OsThreadIsCurrent(const OsThread* thread) {
    return thread != nullptr && thread->id == ::GetCurrentThreadId();
}

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
