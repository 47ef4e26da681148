#pragma once

#include <cstdint>

namespace tarvik {

// How long the demo transport waits, and for what.
struct DemoLimits {
    std::int32_t transmit_poll_ms;  // until the demo thread looks again whether it should end
    std::uint32_t login_wait_ms;    // for a LOGN, before a scan looks again at its end
};

const DemoLimits& GetDemoLimits();

}  // namespace tarvik
