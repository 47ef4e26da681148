#include "platform/thread.h"

#include <windows.h>

#include <atomic>
#include <cstring>
#include <new>

#include "platform/thread_list.h"
#include "platform/thread_stack.h"
#include "platform/win32/shields.h"
#include "platform/win32/system_locks.h"
#include "platform/win32/utf16.h"

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
    std::atomic<int> shields{0};
};

namespace {

// The compiler's thread-local variables would also take slots, but not return them when the library
// is unloaded.
struct ThreadSlot {
    DWORD number = ::TlsAlloc();
};

// Allocated before the other static objects, as these may use locks.
__attribute__((init_priority(101))) const ThreadSlot thread_value_slot;
// The OsThread, on threads of the library.
__attribute__((init_priority(101))) const ThreadSlot own_thread_slot;

__attribute__((destructor(101))) void FreeThreadSlots() {
    ::TlsFree(own_thread_slot.number);
    ::TlsFree(thread_value_slot.number);
}

// Reading a slot clears the thread's last error, which callers may still want.
void* ReadSlot(const ThreadSlot& slot) {
    const DWORD error = ::GetLastError();
    void* value = ::TlsGetValue(slot.number);
    ::SetLastError(error);
    return value;
}

struct ThreadStart {
    OsThread* thread;
    OsThreadEntry entry;
    void* argument;
};

DWORD WINAPI Run(void* argument) {
    const ThreadStart start = *static_cast<ThreadStart*>(argument);
    ::TlsSetValue(own_thread_slot.number, start.thread);
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
    const ShownText<64> text(description);
    if (!text.IsEmpty()) set_description(handle, text.Get());
}

}  // namespace

namespace {

std::size_t StackOfProgram() {
    const auto* program = reinterpret_cast<const std::uint8_t*>(::GetModuleHandleW(nullptr));
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(program);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(program + dos->e_lfanew);
    return headers->OptionalHeader.SizeOfStackReserve;
}

// Suspended until the list has it, so that the library stays loaded for it.
HANDLE CreateSuspended(OsThread* thread, OsThreadEntry entry, void* argument, DWORD* id) {
    auto* start = new (std::nothrow) ThreadStart{thread, entry, argument};
    if (start == nullptr) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    const HANDLE handle = ::CreateThread(nullptr, ThreadStackSize(StackOfProgram()), &Run, start,
                                         CREATE_SUSPENDED | STACK_SIZE_PARAM_IS_A_RESERVATION, id);
    if (handle == nullptr) {
        const DWORD error = ::GetLastError();
        delete start;
        ::SetLastError(error);
    }
    return handle;
}

}  // namespace

OsThread* OsThreadStart(OsThreadEntry entry, void* argument, const char* description) {
    const TerminationShield shield;
    auto* thread = new (std::nothrow) OsThread;
    if (thread == nullptr) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    thread->handle = CreateSuspended(thread, entry, argument, &thread->id);
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

void BeginTerminationShield() {
    if (auto* own = static_cast<OsThread*>(ReadSlot(own_thread_slot))) ++own->shields;
}

void EndTerminationShield() {
    if (auto* own = static_cast<OsThread*>(ReadSlot(own_thread_slot))) --own->shields;
}

TerminationShield::TerminationShield() { BeginTerminationShield(); }

TerminationShield::~TerminationShield() { EndTerminationShield(); }

namespace {

constexpr DWORD kTerminatePatienceMs = 1000;
constexpr DWORD kSuspendedMs = 20;  // the longest time for which a thread stands still in vain
constexpr DWORD kEndPatienceMs = 1000;

// SuspendThread only asks for it; the context can be read when the thread has stopped.
bool Suspend(HANDLE thread) {
    if (::SuspendThread(thread) == static_cast<DWORD>(-1)) return false;
    CONTEXT context;
    context.ContextFlags = CONTEXT_CONTROL;
    ::GetThreadContext(thread, &context);
    return true;
}

// Suspends the thread first and looks at it then. If the locks were taken first, the thread would
// soon wait for one of them, and be terminated as a waiter whose record, which is on its stack,
// stays in the lock. While it is suspended only the kernel is called here: it may be inside any
// lock of the process.
bool TerminateOutsideLocks(OsThread* thread, SystemLocks* locks) {
    if (!Suspend(thread->handle)) return thread->HasEnded();
    const bool outside = thread->shields == 0 && locks->Take(kSuspendedMs);
    if (outside) {
        ::TerminateThread(thread->handle, 0);
        ::WaitForSingleObject(thread->handle, kEndPatienceMs);
    } else {
        ::ResumeThread(thread->handle);
    }
    return outside;
}

bool TerminateInTime(OsThread* thread, SystemLocks* locks) {
    const ULONGLONG deadline = ::GetTickCount64() + kTerminatePatienceMs;
    for (;;) {
        const bool terminated = TerminateOutsideLocks(thread, locks);
        const bool released = locks->Release(kTerminatePatienceMs);
        if (terminated) return true;
        if (!released || ::GetTickCount64() >= deadline) return false;
        ::Sleep(1);
    }
}

}  // namespace

bool OsThreadTerminate(OsThread* thread) {
    if (thread->HasEnded()) return true;
    SystemLocks* locks = SystemLocks::Start();
    if (locks == nullptr) return false;
    const bool terminated = TerminateInTime(thread, locks);
    locks->Close();
    return terminated;
}

void OsThreadClose(OsThread* thread) {
    const TerminationShield shield;
    if (thread != nullptr) CloseListedThread(thread);
}

bool OsThreadIsCurrent(const OsThread* thread) { return thread != nullptr && thread->IsCurrent(); }

void* OsThreadHandle(const OsThread* thread) { return thread->handle; }

std::uint32_t OsCurrentThreadId() { return ::GetCurrentThreadId(); }

std::intptr_t OsThreadValue() {
    return reinterpret_cast<std::intptr_t>(ReadSlot(thread_value_slot));
}

void OsSetThreadValue(std::intptr_t value) {
    ::TlsSetValue(thread_value_slot.number, reinterpret_cast<void*>(value));
}

std::int32_t OsLastError() { return static_cast<std::int32_t>(::GetLastError()); }

void OsSetLastError(std::int32_t error) { ::SetLastError(static_cast<DWORD>(error)); }

}  // namespace tarvik
