#pragma once

#include <cstdint>
#include <string>

#include "transport/serial/port_discovery.h"

// The ports that the system lists. This file's source replaces the discovery of ports.
namespace tarvik::test {

void PlugPort(std::int32_t number, const std::string& path,
              PortReadiness readiness = PortReadiness::kReady);
void SetReadiness(std::int32_t number, PortReadiness readiness);
void UnplugPort(std::int32_t number);
void UnplugAllPorts();
void FailDiscovery(bool fail);
// Scans started so far.
std::uint32_t ScanCount();
// While it lives, the system does not answer a scan.
class HeldUpDiscovery {
public:
    HeldUpDiscovery();
    ~HeldUpDiscovery();
    HeldUpDiscovery(const HeldUpDiscovery&) = delete;
    HeldUpDiscovery& operator=(const HeldUpDiscovery&) = delete;
};
// While it lives, the system does not answer what an advice asks it.
class HeldUpAdvice {
public:
    HeldUpAdvice();
    ~HeldUpAdvice();
    HeldUpAdvice(const HeldUpAdvice&) = delete;
    HeldUpAdvice& operator=(const HeldUpAdvice&) = delete;

    bool IsAwaited() const;
};

}  // namespace tarvik::test
