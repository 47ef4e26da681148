#include "unit/transport/fake_discovery.h"

#include <atomic>
#include <map>
#include <mutex>

#include "support/text.h"

namespace tarvik {
namespace test {

namespace {

std::mutex plugged_lock;
struct PluggedPort {
    std::string path;
    PortReadiness readiness;
};
std::map<std::int32_t, PluggedPort> plugged;  // guarded by plugged_lock
std::atomic<bool> failing{false};
std::mutex held_up;  // owned by HeldUpDiscovery; a scan passes through
std::atomic<std::uint32_t> scan_count{0};
std::mutex advice_held_up;  // owned by HeldUpAdvice; an advice passes through
std::atomic<std::uint32_t> awaited_advices{0};

}  // namespace

void PlugPort(std::int32_t number, const std::string& path, PortReadiness readiness) {
    const std::lock_guard hold(plugged_lock);
    plugged[number] = {path, readiness};
}
void SetReadiness(std::int32_t number, PortReadiness readiness) {
    const std::lock_guard hold(plugged_lock);
    plugged.at(number).readiness = readiness;
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

HeldUpAdvice::HeldUpAdvice() { advice_held_up.lock(); }
HeldUpAdvice::~HeldUpAdvice() { advice_held_up.unlock(); }
bool HeldUpAdvice::IsAwaited() const { return awaited_advices > 0; }

}  // namespace test

bool DiscoverPorts(FoundPort found, void* context) {
    ++test::scan_count;
    { const std::lock_guard pass(test::held_up); }
    if (test::failing) return false;
    const std::lock_guard hold(test::plugged_lock);
    for (const auto& [number, port] : test::plugged)
        found(context, {number, port.path.c_str(), port.readiness});
    return true;
}

void AdviseOnPort(const ListedPort& port, char* text, std::size_t size) {
    ++test::awaited_advices;
    { const std::lock_guard pass(test::advice_held_up); }
    --test::awaited_advices;
    FormatText(text, size, "advice on %s", port.path);
}

}  // namespace tarvik
