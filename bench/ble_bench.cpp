// Requests to a Bluetooth LE dongle through the exported functions of the shared library, compared
// with the same exchange using only the substitute for the radio.

#include <string>

#include "ble_floor.h"
#include "pdu_session.h"
#include "placement.h"
#include "report.h"
#include "rounds.h"
#include "scratch_folder.h"
#include "simulated_dongle.h"

namespace tarvik::bench {
namespace {

constexpr std::size_t kRequests = 100;  // in one batch
constexpr int kRounds = 15;

void Compare(benchmark::State& state, bool diagnostics) {
    const ScratchFolder folder;
    folder.WriteConfig(diagnostics, "useBle");
    BleFloor floor;
    PduSession session(LoadedPduFunctions(), 1);
    Rounds rounds(
        {{"floor", 1, kRequests, kAnyCore, [&](std::size_t) { return floor.Ask(); }},
         {"link", 1, kRequests, kAnyCore, [&](std::size_t link) { return session.Ask(link); }}});
    RunRounds(state, &rounds);
    AddRoundTripRow(
        std::string("Bluetooth LE, 1 link, log and trace ") + (diagnostics ? "on" : "off"), rounds,
        1, 0, {});
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    RunUnderRadio(argv);
    for (const bool diagnostics : {false, true}) {
        benchmark::RegisterBenchmark(
            diagnostics ? "Bluetooth/on" : "Bluetooth/off",
            [diagnostics](benchmark::State& state) { Compare(state, diagnostics); })
            ->Iterations(kRounds)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    return RunBenchmarks(argc, argv);
}
