#pragma once

#include "transport/serial/serial_limits.h"

namespace tarvik::test {

// For test programs that define GetSerialLimits: long for answers that a test expects, short for
// pauses.
inline constexpr SerialLimits kPatientLimits = {
    .settle_ms = 3000,
    .scan_pause_ms = 1,
    .sync_wait_ms = 10'000,
    .failed_thread_end_ms = 500,
    .monitor_end_ms = 20,
    .stop_ports_ms = 20'000,
    .connect_thread_end_ms = 30'000,
    .receive_poll_ms = 50,
    .transmit_poll_ms = 50,
    .monitor_poll_ms = 100,
    .write_ms = 500,
    .thread_end_ms = 500,
    .login_wait_ms = 10'000,
};

}  // namespace tarvik::test
