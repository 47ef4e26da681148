#include "transport/ble/ble_limits.h"

namespace tarvik {

const BleLimits& GetBleLimits() {
    static constexpr BleLimits kLimits = {
        .login_wait_ms = 500,
        .connect_wait_ms = 30'000,
        .scan_connect_ms = 60'000,
        .attempts_end_ms = 5'000,
        .thread_end_ms = 500,
        .close_poll_ms = 50,
        .transmit_poll_ms = 50,
        .receive_poll_ms = 100,
    };
    return kLimits;
}

}  // namespace tarvik
