// The report of its own health that the dongle makes when it is not told what to report.

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

// JSON text. Load and stacks vary a little with the uptime, the same way in each run.
std::string MakeTelemetry(const Health& health);

}  // namespace brennix
