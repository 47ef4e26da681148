// The end of the process, as the system's loader reports it.

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/surroundings.h"

using namespace conformance;

// The C runtime's own locks, by number.
extern "C" __declspec(dllimport) void __cdecl _lock(int number);
extern "C" __declspec(dllimport) void __cdecl _unlock(int number);

namespace {

constexpr int kExitLock = 8;  // of the functions that run at the end

using EntryPoint = BOOL(WINAPI*)(HMODULE library, DWORD reason, void* process_ends);

EntryPoint EntryPointOf(HMODULE library) {
    auto* image = reinterpret_cast<char*>(library);
    const auto* start = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + start->e_lfanew);
    return reinterpret_cast<EntryPoint>(image + headers->OptionalHeader.AddressOfEntryPoint);
}

// Stands in for a thread that the end of the process has met inside the heap, the
// console and the C runtime.
class LockKeeper {
public:
    LockKeeper() : thread_(::CreateThread(nullptr, 0, &Run, this, 0, nullptr)) {
        while (!inside_)
            ::Sleep(1);
    }
    ~LockKeeper() {
        leave_ = true;
        ::WaitForSingleObject(thread_, INFINITE);
        ::CloseHandle(thread_);
    }
    LockKeeper(const LockKeeper&) = delete;
    LockKeeper& operator=(const LockKeeper&) = delete;

private:
    static DWORD WINAPI Run(void* argument) {
        auto* self = static_cast<LockKeeper*>(argument);
        ::_lock_file(stdout);
        _lock(kExitLock);
        ::HeapLock(::GetProcessHeap());
        self->inside_ = true;
        while (!self->leave_)
            ::Sleep(1);
        ::HeapUnlock(::GetProcessHeap());
        _unlock(kExitLock);
        ::_unlock_file(stdout);
        return 0;
    }

    std::atomic<bool> inside_{false};
    std::atomic<bool> leave_{false};
    HANDLE thread_;
};

// Nothing can be reported while the heap is locked.
DWORD WINAPI EndHangingProcess(void*) {
    ::Sleep(20'000);
    ::TerminateProcess(::GetCurrentProcess(), 7);
    return 0;
}

}  // namespace

FRESH_PROCESS_TEST(Loading, ProcessEndTakesNoLockThatAThreadMayHaveHeld) {
    Settings{.enableDebugLogFile = true, .dummyDevice = true}.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    const HMODULE library = ::GetModuleHandleA(kLibraryFileName);
    ASSERT_NE(library, nullptr);
    ::CloseHandle(::CreateThread(nullptr, 0, &EndHangingProcess, nullptr, 0, nullptr));
    StdoutCapture console;
    BOOL result = FALSE;
    {
        const LockKeeper keeper;
        result = EntryPointOf(library)(library, DLL_PROCESS_DETACH, library);
    }
    EXPECT_NE(result, FALSE);
    std::string text = console.Text();
    std::erase(text, '\r');
    EXPECT_EQ(text, "[DLL] Detaching the Tarvik D-PDU DLL\n");
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
}
