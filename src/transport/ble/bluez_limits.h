#pragma once

#include <cstdint>

namespace tarvik {

// The time limits of calls to BlueZ and of waiting for what it signals.
struct BluezLimits {
    std::uint32_t open_bus_ms;         // connecting the message bus, which then continues
    std::uint32_t objects_ms;          // the list of objects
    std::uint32_t discovery_ms;        // each call that sets, starts or stops discovery
    std::uint32_t discovery_retry_ms;  // between two attempts to start it
    // Longer than a scan waits for all steps together: the next scan finds a dongle that is late.
    std::uint32_t connect_ms;       // Connect
    std::uint32_t connected_ms;     // reading the state, then the signal that it is connected
    std::uint32_t resolve_ms;       // until the services are resolved
    std::uint32_t subscribe_ms;     // StartNotify
    std::uint32_t write_ms;         // WriteValue
    std::uint32_t close_ms;         // StopNotify and Disconnect, each
    std::uint32_t close_mute_ms;    // the same when BlueZ did not answer before: only sent
    std::uint32_t answer_grace_ms;  // after each call's limit, for the bus to report the time-out
};
const BluezLimits& GetBluezLimits();

}  // namespace tarvik
