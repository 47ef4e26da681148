#pragma once

#include <cstdint>

namespace tarvik {

// Called once for each port that belongs to a dongle; `path` lives during the call.
using FoundPort = void (*)(void* context, std::int32_t number, const char* path);

// Looks through the system's serial ports for dongles, known by their USB identity. Reports on the
// calling thread before it returns. False: the system gave no list of devices.
bool DiscoverPorts(FoundPort found, void* context);

}  // namespace tarvik
