#include "doctor/access.h"
#include "doctor/surroundings.h"
#include "transport/serial/port_discovery.h"

namespace dpdu {
namespace {

constexpr char kPortsSubject[] = "ports";

Finding PortFinding(const std::string& path) {
    const std::string advice = PortAdvice(path);
    if (advice.empty()) return {Verdict::kFine, kPortsSubject, "a dongle on " + path};
    return {Verdict::kWrong, kPortsSubject, "no access to the dongle on " + path, advice};
}

// The user may rely on other transports.
Finding NoPortFinding(const tarvik::Config& config) {
    const bool is_only = !config.useCloud && !config.useBle && !config.dummyDevice;
    return {is_only ? Verdict::kWrong : Verdict::kNote, kPortsSubject,
            "no dongle (USB 303A:1001) on a serial port",
            "plug it in; try another cable or socket"};
}

}  // namespace

Findings CheckPorts(const tarvik::Config& config) {
    if (!config.useSerial) return {};
    Findings findings;
    const auto add = [](void* context, std::int32_t, const char* path) {
        static_cast<Findings*>(context)->push_back(PortFinding(path));
    };
    if (!tarvik::DiscoverPorts(add, &findings)) {
        return {{Verdict::kWrong, kPortsSubject, "the system does not list its devices",
                 "check that its device service is running"}};
    }
    if (findings.empty()) findings.push_back(NoPortFinding(config));
    return findings;
}

}  // namespace dpdu
