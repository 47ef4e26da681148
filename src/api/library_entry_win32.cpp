#include <windows.h>

#include "api/library_entry.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) tarvik::OnLibraryLoad();
    if (reason == DLL_PROCESS_DETACH) tarvik::OnLibraryUnload();
    return TRUE;
}
