#pragma once

#include <cstdint>

namespace tarvik {

// The response time-out that a request gives the dongle. The exchange itself waits longer by a
// grace period of its own, so that the dongle's answer to a time-out still arrives.
std::uint32_t ResponseTimeoutMs();

}  // namespace tarvik
