#include "transport/demo/demo_limits.h"

namespace tarvik {

const DemoLimits& GetDemoLimits() {
    static constexpr DemoLimits kLimits = {
        .transmit_poll_ms = 50,
        .login_wait_ms = 50,
    };
    return kLimits;
}

}  // namespace tarvik
