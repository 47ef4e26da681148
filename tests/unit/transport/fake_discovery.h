#pragma once

#include <cstdint>
#include <string>

// What the system lists, instead of what it really does: this file's source stands in for the
// discovery of ports.
namespace tarvik::test {

void PlugPort(std::int32_t number, const std::string& path);
void UnplugPort(std::int32_t number);
void UnplugAllPorts();
void FailDiscovery(bool fail);
// Scans that have been started so far.
std::uint32_t ScanCount();

}  // namespace tarvik::test
