// The duration of PDUDestruct with one idle link and with a hundred.

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "pdu_session.h"
#include "report.h"
#include "rounds.h"
#include "scratch_folder.h"
#include "simulated_dongle.h"

namespace tarvik::bench {
namespace {

constexpr std::size_t kManyLinks = 100;
constexpr double kGoalMs = 100;
// After this time every worker sleeps in the middle of its poll interval.
constexpr std::chrono::milliseconds kIdle{250};

double DestructMs(std::size_t links) {
    PduSession session(LoadedPduFunctions(), links);
    if (!session.Ask(0)) std::_Exit(1);
    std::this_thread::sleep_for(kIdle);
    return session.DestructMs();
}

void Destruct(benchmark::State& state) {
    const ScratchFolder folder;
    folder.WriteConfig(false);
    std::vector<double> one;
    std::vector<double> many;
    for ([[maybe_unused]] auto iteration : state) {
        one.push_back(DestructMs(1));
        many.push_back(DestructMs(kManyLinks));
        state.SetIterationTime(many.back() / 1e3);
    }
    const double one_ms = Median(one);
    const double many_ms = Median(many);
    state.counters["links_1:ms"] = one_ms;
    state.counters["links_100:ms"] = many_ms;
    AddFindingRow("PDUDestruct with 100 idle links against one",
                  Text("%.1f ms", many_ms) + " and " + Text("%.1f ms", one_ms) + ": " +
                      Text("%.1f ms longer", many_ms - one_ms),
                  "≤ 100 ms longer", many_ms - one_ms <= kGoalMs);
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    RunUnderSimulator(argv);
    benchmark::RegisterBenchmark("Destruct", Destruct)
        ->Iterations(5)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
    return RunBenchmarks(argc, argv);
}
