#include "link/link_limits.h"

namespace tarvik {

// The library's limits, except the wait slice, which takes real time.
const LinkLimits& GetLinkLimits() {
    static constexpr LinkLimits kLimits = {
        .wait_slice_ms = 2,
        .dongle_grace_ms = 500,
        .answer_timeout_ms = 10000,
        .busy_limit_ms = 60000,
        .reassembly_idle_ms = 30000,
    };
    return kLimits;
}

}  // namespace tarvik
