#include "unit/transport/fake_discovery.h"

#include <atomic>
#include <map>
#include <mutex>

#include "transport/serial/port_discovery.h"

namespace tarvik {
namespace test {

static std::mutex lock;
static std::map<std::int32_t, std::string> plugged;  // guarded by lock
static std::atomic<bool> failing{false};
static std::atomic<std::uint32_t> scans{0};

void PlugPort(std::int32_t number, const std::string& path) {
    const std::lock_guard hold(lock);
    plugged[number] = path;
}
void UnplugPort(std::int32_t number) {
    const std::lock_guard hold(lock);
    plugged.erase(number);
}
void UnplugAllPorts() {
    const std::lock_guard hold(lock);
    plugged.clear();
}
void FailDiscovery(bool fail) { failing = fail; }
std::uint32_t ScanCount() { return scans; }

}  // namespace test

bool DiscoverPorts(FoundPort found, void* context) {
    ++test::scans;
    if (test::failing) return false;
    const std::lock_guard hold(test::lock);
    for (const auto& [number, path] : test::plugged)
        found(context, number, path.c_str());
    return true;
}

}  // namespace tarvik
