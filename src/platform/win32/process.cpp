#include "platform/process.h"

#include <windows.h>

namespace tarvik {

std::uint32_t OsProcessId() { return ::GetCurrentProcessId(); }

bool OsDebuggerPresent() { return ::IsDebuggerPresent() != 0; }

void OsDebugBreak() { ::DebugBreak(); }

// Not ExitProcess: that runs the unload notices of every library, on a thread that may hold any
// of their locks.
void OsExitProcess(int code) {
    ::TerminateProcess(::GetCurrentProcess(), static_cast<UINT>(code));
    for (;;)
        ::Sleep(INFINITE);
}

namespace {

HMODULE ReferToThisLibrary(DWORD flags) {
    const auto here = reinterpret_cast<LPCWSTR>(&ReferToThisLibrary);
    HMODULE library = nullptr;
    ::GetModuleHandleExW(flags | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, here, &library);
    return library;
}

}  // namespace

void OsKeepLibraryLoaded() { ReferToThisLibrary(GET_MODULE_HANDLE_EX_FLAG_PIN); }

void* OsHoldLibrary() { return ReferToThisLibrary(0); }

void OsReleaseLibrary(void* reference) {
    if (reference != nullptr) ::FreeLibrary(static_cast<HMODULE>(reference));
}

void OsDebugOutput(const char* text) { ::OutputDebugStringA(text); }

void OsMessageBox(const char* text, const char* caption) {
    ::MessageBoxA(nullptr, text, caption, MB_OK | MB_ICONERROR);
}

bool OsEnvironment(const char* name, char* value, std::uint32_t capacity) {
    const DWORD length = ::GetEnvironmentVariableA(name, nullptr, 0);
    // The length counts the NUL. Nothing is written unless all of it fits.
    if (length == 0 || length > capacity) return false;
    return ::GetEnvironmentVariableA(name, value, capacity) < capacity;
}

CalendarTime OsLocalTime() {
    SYSTEMTIME local;
    ::GetLocalTime(&local);
    return {local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond};
}

std::int64_t OsCalendarSecond() {
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    const auto ticks = static_cast<std::int64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime;
    return ticks / 10'000'000;
}

}  // namespace tarvik
