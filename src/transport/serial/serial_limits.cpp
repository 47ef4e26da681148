#include "transport/serial/serial_limits.h"

namespace tarvik {

const SerialLimits& GetSerialLimits() {
    static constexpr SerialLimits kLimits = {
        .settle_ms = 3000,
        .scan_pause_ms = 100,
        .sync_wait_ms = 100,
        .failed_thread_end_ms = 500,
        .monitor_end_ms = 100,
        .stop_ports_ms = 4000,
        .connect_thread_end_ms = 5000,
        .receive_poll_ms = 50,
        .transmit_poll_ms = 50,
        .monitor_poll_ms = 100,
        .write_ms = 500,
        .thread_end_ms = 500,
        .login_wait_ms = 50,
    };
    return kLimits;
}

}  // namespace tarvik
