#include "unit/faults/event_fault.h"

#include <atomic>

// The platform's source, with its OsEventCreate under another name. This object then defines all
// that the source does, so the linker takes nothing of it from the library.
#define OsEventCreate SystemEventCreate
#ifdef _WIN32
#include "platform/win32/event.cpp"
#else
#include "platform/posix/event.cpp"
#endif
#undef OsEventCreate

namespace tarvik {
namespace {

std::atomic<bool> refused{false};

}  // namespace

OsEvent* OsEventCreate(EventReset reset) { return refused ? nullptr : SystemEventCreate(reset); }

namespace test {

EventFault::EventFault() { refused = true; }
EventFault::~EventFault() { refused = false; }

}  // namespace test
}  // namespace tarvik
