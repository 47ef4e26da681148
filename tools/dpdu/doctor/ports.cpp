#include "doctor/dongle_answer.h"
#include "doctor/surroundings.h"
#include "transport/serial/port_discovery.h"

namespace dpdu {
namespace {

const char* WhatIsWrong(tarvik::PortReadiness readiness) {
    switch (readiness) {
        case tarvik::PortReadiness::kReady:
            return "";
        case tarvik::PortReadiness::kStarting:
            return "the system has not finished setting up the dongle on ";
        case tarvik::PortReadiness::kNoAccess:
            return "no access to the dongle on ";
        case tarvik::PortReadiness::kStopped:
            return "the driver does not run for the dongle on ";
    }
    return "";
}

Finding PortFinding(const tarvik::ListedPort& port) {
    const std::string path = port.path;
    if (port.readiness == tarvik::PortReadiness::kReady) {
        return AnswerFinding(path, AskDongle(port.path), LogOfSilence(port.number));
    }
    char advice[256];
    tarvik::AdviseOnPort(port, advice, sizeof advice);
    return {Verdict::kWrong, kPortsSubject, WhatIsWrong(port.readiness) + path, advice};
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
    const auto add = [](void* context, const tarvik::ListedPort& port) {
        static_cast<Findings*>(context)->push_back(PortFinding(port));
    };
    if (!tarvik::DiscoverPorts(add, &findings)) {
        return {{Verdict::kWrong, kPortsSubject, "the system does not list its devices",
                 "check that its device service is running"}};
    }
    if (findings.empty()) findings.push_back(NoPortFinding(config));
    return findings;
}

}  // namespace dpdu
