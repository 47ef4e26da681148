#pragma once

#include <cstdint>

namespace tarvik {

// Called once for each port that belongs to a dongle; `path` lives during the call.
using FoundPort = void (*)(void* context, std::int32_t number, const char* path);

// Reports every serial port whose USB identity is that of a dongle, on the calling thread. False:
// the system returned no list of devices.
bool DiscoverPorts(FoundPort found, void* context);

}  // namespace tarvik
