#include "unit/faults/calendar_fault.h"

#include <atomic>

// The platform's source, with its OsCalendarSecond renamed. This object then defines all that the
// source does, so the linker takes nothing of it from the library.
#define OsCalendarSecond SystemCalendarSecond
#ifdef _WIN32
#include "platform/win32/process.cpp"
#else
#include "platform/posix/process.cpp"
#endif
#undef OsCalendarSecond

namespace tarvik {
namespace {

std::atomic<std::int64_t> ahead_s{0};
std::atomic<void (*)()> on_read{nullptr};

}  // namespace

std::int64_t OsCalendarSecond() {
    if (void (*const action)() = on_read) action();
    return SystemCalendarSecond() + ahead_s;
}

namespace test {

void AdvanceCalendar(int seconds) { ahead_s += seconds; }

void OnCalendarRead(void (*action)()) { on_read = action; }

}  // namespace test
}  // namespace tarvik
