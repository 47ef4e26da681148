#pragma once

#include <cstddef>
#include <cstdint>

namespace tarvik {

enum class PortReadiness : std::uint8_t {
    kReady,
    kStarting,  // the system is still setting it up
    kNoAccess,  // this process may not open it, or not yet
    kStopped,   // its driver does not run
};

struct ListedPort {
    std::int32_t number;
    const char* path;  // lives during the call
    PortReadiness readiness;
};

// Called once for each port that belongs to a dongle.
using FoundPort = void (*)(void* context, const ListedPort& port);

// Reports every serial port whose USB identity is that of a dongle, on the calling thread. False:
// the system returned no list of devices.
bool DiscoverPorts(FoundPort found, void* context);

// What the user can do about a port that does not become ready, for the log and `dpdu doctor`. May
// take long, as Linux may ask a server for the name of a group: hold no lock.
void AdviseOnPort(const ListedPort& port, char* text, std::size_t size);

}  // namespace tarvik
