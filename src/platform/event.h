#pragma once

#include <cstdint>

namespace tarvik {

struct OsEvent;

enum class EventReset : std::uint8_t {
    kManual,  // stays set until OsEventReset; wakes every waiter
    kAuto,    // one successful wait clears it; wakes one waiter
};

OsEvent* OsEventCreate(EventReset reset);  // created clear; null: the system refused
void OsEventSet(OsEvent* event);
void OsEventReset(OsEvent* event);
bool OsEventWait(OsEvent* event, std::int32_t timeout_ms);  // -1: no limit; false: time ran out
// Waits for either. Returns 0 or 1, the lower first when both are set, -1 when time ran out.
int OsEventWaitEither(OsEvent* first, OsEvent* second, std::int32_t timeout_ms);
void OsEventClose(OsEvent* event);

}  // namespace tarvik
