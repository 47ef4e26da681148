#include "doctor/dongle_answer.h"
#include "doctor/surroundings.h"

namespace dpdu {
namespace {

Diagnosis UnreadyDiagnosis(tarvik::PortReadiness readiness) {
    switch (readiness) {
        case tarvik::PortReadiness::kNoAccess:
            return Diagnosis::kPortNoAccess;
        case tarvik::PortReadiness::kStopped:
            return Diagnosis::kPortStopped;
        case tarvik::PortReadiness::kReady:
        case tarvik::PortReadiness::kStarting:
            break;
    }
    return Diagnosis::kPortStarting;
}

struct PortCheck {
    CheckRun* run;
    bool found_any = false;

    void Examine(const tarvik::ListedPort& port) {
        found_any = true;
        if (run->Stop()) return;
        if (port.readiness != tarvik::PortReadiness::kReady) return run->Add(UnreadyFinding(port));
        const DongleAnswer answer = AskDongle(port.path, run->Stop());
        // What it did not say for lack of time is no finding.
        if (!run->Stop()) run->Add(AnswerFinding(port.path, answer, LogOfSilence(port.number)));
    }
};

// The demo device is no reason to do without a dongle.
bool IsOnlyTransport(const tarvik::Config& config) { return !config.useCloud && !config.useBle; }

}  // namespace

Finding UnreadyFinding(const tarvik::ListedPort& port) {
    char advice[256];
    tarvik::AdviseOnPort(port, advice, sizeof advice);
    return Found(UnreadyDiagnosis(port.readiness), {{"port", port.path}, {"command", advice}});
}

void CheckPorts(const tarvik::Config& config, CheckRun* run) {
    if (!config.useSerial) return;
    PortCheck check{run};
    const auto examine = [](void* context, const tarvik::ListedPort& port) {
        static_cast<PortCheck*>(context)->Examine(port);
    };
    if (!tarvik::DiscoverPorts(examine, &check)) {
        run->Add(Found(Diagnosis::kPortsUnlisted));
    } else if (!check.found_any) {
        run->Add(
            Found(IsOnlyTransport(config) ? Diagnosis::kPortNone : Diagnosis::kPortNoneOthers));
    }
}

}  // namespace dpdu
