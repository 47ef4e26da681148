#pragma once

#include <cstdint>

namespace tarvik {

// How long an exchange with a dongle may take. The system usually gives up long before: it takes
// about 7 s for an unreachable dongle, and each request queued before this one may take as long.
struct WinrtLimits {
    // Each step until the dongle is subscribed to. Longer than a scan waits for all steps together:
    // the next scan finds a dongle that is late.
    std::int32_t connect_ms;
    std::int32_t write_ms;     // handing one packet to the system
    std::int32_t pdu_wait_ms;  // subscribing: until PDUs may be larger than the smallest
    std::int32_t pdu_poll_ms;  // the longest that it takes to notice that they may
    std::int32_t close_ms;     // unsubscribing
};
const WinrtLimits& GetWinrtLimits();

}  // namespace tarvik
