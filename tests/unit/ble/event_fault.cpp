// The linker's --wrap leads every call of OsEventCreate here first.
#include "unit/ble/event_fault.h"

#include <atomic>

#include "platform/event.h"

namespace tarvik {

OsEvent* RealEventCreate(EventReset reset) __asm__(
    "__real__ZN6tarvik13OsEventCreateENS_10EventResetE");
OsEvent* WrappedEventCreate(EventReset reset) __asm__(
    "__wrap__ZN6tarvik13OsEventCreateENS_10EventResetE");

static std::atomic<bool> refused{false};

OsEvent* WrappedEventCreate(EventReset reset) { return refused ? nullptr : RealEventCreate(reset); }

namespace test {

EventFault::EventFault() { refused = true; }
EventFault::~EventFault() { refused = false; }

}  // namespace test
}  // namespace tarvik
