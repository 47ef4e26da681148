// The dongle's own health report, sent if the vehicle file gives no text.

#pragma once

#include <cstdint>
#include <string>

#include "vehicle/timeline.h"

namespace brennix {

struct Health {
    std::uint64_t uptime_ms = 0;
    std::size_t requests_waiting = 0;
    std::uint64_t frames_sent = 0;
    Power power;
};

// JSON text. Load and stacks vary slightly with the uptime, identically in each run.
std::string MakeTelemetry(const Health& health);

}  // namespace brennix
