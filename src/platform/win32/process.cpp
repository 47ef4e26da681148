#include "platform/process.h"

#include <windows.h>

#include <cstring>

#include "platform/win32/library_reference.h"
#include "platform/win32/utf16.h"

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

void ReleaseLibraryAfter(PTP_CALLBACK_INSTANCE callback, void* reference) {
    ::FreeLibraryWhenCallbackReturns(callback, static_cast<HMODULE>(reference));
}

bool OsIsForked() { return false; }

void OsAdoptProcess() {}

void OsChooseDebugOutput() {}

void OsDebugOutput(const char* text) {
    const ShownText<1024> wide(text);
    // Whatever is longer is at least shown as the debugger reads it.
    if (wide.IsEmpty()) return ::OutputDebugStringA(text);
    ::OutputDebugStringW(wide.Get());
}

bool OsEnvironment(const char* name, char* value, std::uint32_t capacity) {
    constexpr DWORD kRoom = 1024;
    const WideText<128, MB_ERR_INVALID_CHARS> wide_name(name);
    // An empty value has the length 0, as one that is not set. The size counts the NUL.
    const DWORD wide_size = ::GetEnvironmentVariableW(wide_name.Get(), nullptr, 0);
    wchar_t wide[kRoom];
    wide[0] = L'\0';  // it may be gone by the second call
    if (wide_size == 0 || ::GetEnvironmentVariableW(wide_name.Get(), wide, kRoom) >= kRoom) {
        return false;
    }
    char text[kRoom * 3];
    const std::size_t size = ToUtf8(wide, text, sizeof text);
    if (size == 0 || size > capacity) return false;
    std::memcpy(value, text, size);
    return true;
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
