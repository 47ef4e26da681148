#pragma once

#include <cstdint>

namespace tarvik {

// The time limits of the Bluetooth LE transport on every radio. Those of a radio's own calls are in
// the limits of its back end.
struct BleLimits {
    std::uint32_t login_wait_ms;    // waiting for LOGN after IDEN
    std::uint32_t connect_wait_ms;  // a scan's wait for one attempt, which then continues
    std::uint32_t scan_connect_ms;  // of a scan, which then begins to connect no further dongle
    std::uint32_t attempts_end_ms;  // Deinit's wait for all attempts together
    std::int32_t thread_end_ms;     // joining a thread, which then continues alone
    std::uint32_t close_poll_ms;    // the longest that a waiting scan takes to notice Deinit
    std::int32_t transmit_poll_ms;  // the longest that the TX thread takes to notice its end
    std::int32_t receive_poll_ms;   // the longest that the RX thread takes
};
const BleLimits& GetBleLimits();

}  // namespace tarvik
