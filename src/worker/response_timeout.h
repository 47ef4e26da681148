#pragma once

#include <cstdint>

namespace tarvik {

// The response time-out given to the dongle. The exchange itself waits longer by a grace period, so
// that the dongle's report of a time-out still arrives.
std::uint32_t ResponseTimeoutMs();

}  // namespace tarvik
