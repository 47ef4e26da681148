#pragma once

#include <cstdint>

namespace tarvik {

std::uint32_t OsProcessId();
bool OsDebuggerPresent();
void OsDebugBreak();
[[noreturn]] void OsExitProcess(int code);  // at once: no destructors, no unload notices
// Keeps this library loaded until the process ends, whatever the application unloads. For work of
// the system that may call our code at any later time.
void OsKeepLibraryLoaded();
// True in a process that was forked from the one that loaded the library: none of the library's
// other threads is there, and whatever locks they held stay held.
bool OsIsForked();
// From now on this process counts as the one that loaded it: a daemon forks before it constructs.
void OsAdoptProcess();
// As OsKeepLibraryLoaded, until the reference is released. Null: not a library, or refused.
void* OsHoldLibrary();
void OsReleaseLibrary(void* reference);  // null does nothing

// The platform's debugger output: OutputDebugString / syslog at debug level if the environment had
// DPDU_DEBUG_OUTPUT=syslog at the last OsChooseDebugOutput, otherwise nowhere. The text is UTF-8.
void OsChooseDebugOutput();
void OsDebugOutput(const char* text);

// Copies the variable's value with its NUL, in UTF-8 on Windows; false when it is not set, or
// longer than the buffer holds or 1023 characters on Windows (nothing is written then).
bool OsEnvironment(const char* name, char* value, std::uint32_t capacity);

struct CalendarTime {
    int year, month, day, hour, minute, second;  // month 1 to 12
};
// Local calendar time of this second; changes exactly when OsCalendarSecond does.
CalendarTime OsLocalTime();
std::int64_t OsCalendarSecond();  // seconds since an epoch; cheap

}  // namespace tarvik
