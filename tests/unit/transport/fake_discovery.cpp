#include "unit/transport/fake_discovery.h"

#include <atomic>
#include <map>
#include <mutex>

#include "transport/serial/port_discovery.h"

namespace tarvik {
namespace test {

namespace {

std::mutex plugged_lock;
std::map<std::int32_t, std::string> plugged;  // guarded by plugged_lock
std::atomic<bool> failing{false};
std::mutex held_up;  // owned by HeldUpDiscovery; a scan passes through
std::atomic<std::uint32_t> scan_count{0};

}  // namespace

void PlugPort(std::int32_t number, const std::string& path) {
    const std::lock_guard hold(plugged_lock);
    plugged[number] = path;
}
void UnplugPort(std::int32_t number) {
    const std::lock_guard hold(plugged_lock);
    plugged.erase(number);
}
void UnplugAllPorts() {
    const std::lock_guard hold(plugged_lock);
    plugged.clear();
}
void FailDiscovery(bool fail) { failing = fail; }
std::uint32_t ScanCount() { return scan_count; }

HeldUpDiscovery::HeldUpDiscovery() { held_up.lock(); }
HeldUpDiscovery::~HeldUpDiscovery() { held_up.unlock(); }

}  // namespace test

bool DiscoverPorts(FoundPort found, void* context) {
    ++test::scan_count;
    { const std::lock_guard pass(test::held_up); }
    if (test::failing) return false;
    const std::lock_guard hold(test::plugged_lock);
    for (const auto& [number, path] : test::plugged)
        found(context, number, path.c_str());
    return true;
}

}  // namespace tarvik
