#include <windows.h>

#include "api/library_entry.h"
#include "platform/win32/process_end.h"
#include "support/console_output.h"

namespace __gnu_cxx {
void __freeres();
}

namespace {

// The C++ runtime is part of this file and does not release the memory that it keeps for
// exceptions, 73 KB each time the library is loaded. Runs last of all unload notices.
__attribute__((destructor(101))) void ReleaseRuntimeReserve() { __gnu_cxx::__freeres(); }

// Instead of OnLibraryUnload, if all other threads of the process have been ended where they were.
// Takes no lock, which one of them may have held, and releases nothing.
void OnProcessEnd() {
    if (!tarvik::ConsoleIsPaused()) tarvik::PrintAtProcessEnd(tarvik::kDetachLine);
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) tarvik::OnLibraryLoad();
    if (reason == DLL_PROCESS_DETACH) tarvik::OnLibraryUnload();
    return TRUE;
}

extern "C" BOOL WINAPI DllMainCRTStartup(HINSTANCE instance, DWORD reason, LPVOID process_ends);

// The library's entry point. At the end of the process it goes past the C runtime's own, which
// would run the destructors of static objects: they take locks and release memory.
extern "C" BOOL WINAPI LibraryEntry(HINSTANCE instance, DWORD reason, LPVOID process_ends) {
    if (reason == DLL_PROCESS_DETACH && process_ends != nullptr) {
        OnProcessEnd();
        return TRUE;
    }
    return DllMainCRTStartup(instance, reason, process_ends);
}
