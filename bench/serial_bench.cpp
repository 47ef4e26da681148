// Requests over the simulated dongle's serial port, through the exported functions of the shared
// library.

#include <string>
#include <utility>
#include <vector>

#include "pdu_session.h"
#include "placement.h"
#include "report.h"
#include "rounds.h"
#include "scratch_folder.h"
#include "serial_floor.h"
#include "simulated_dongle.h"

namespace tarvik::bench {
namespace {

// The library and its floor with this many links in use at the same time.
struct Pair {
    std::size_t links;
    std::size_t requests;  // of each link in one batch
};

struct Variant {
    const char* name;
    bool diagnostics;  // debug log and trace
    Placement placement;
    std::vector<Pair> pairs;
    int rounds;
};

const std::vector<Pair> kOne = {{1, 300}};
const std::vector<Pair> kSeveral = {{1, 500}, {10, 100}, {100, 10}};

// The order matters: an open log stays open for the process.
const Variant kVariants[] = {
    {"off/1/two_cores", false, kTwoCores, kOne, 25}, {"off/1/one_core", false, kOneCore, kOne, 25},
    {"off/several", false, kAnywhere, kSeveral, 15}, {"on/1/two_cores", true, kTwoCores, kOne, 25},
    {"on/1/one_core", true, kOneCore, kOne, 25},     {"on/several", true, kAnywhere, kSeveral, 15},
};

std::string Suffix(const Variant& variant) {
    std::string suffix = std::string(", log and trace ") + (variant.diagnostics ? "on" : "off");
    if (*variant.placement.text != '\0') suffix += std::string(", ") + variant.placement.text;
    return suffix;
}

void AddPair(const Pair& pair, int core, PduSession* session, SerialFloor* floor,
             std::vector<Contender>* contenders) {
    const std::string links = std::to_string(pair.links);
    contenders->push_back({"floor_" + links, pair.links, pair.requests, core,
                           [floor](std::size_t link) { return floor->Ask(link); }});
    contenders->push_back({"links_" + links, pair.links, pair.requests, core,
                           [session](std::size_t link) { return session->Ask(link); }});
}

void AddRows(const Variant& variant, const Rounds& rounds) {
    for (std::size_t i = 0; i < variant.pairs.size(); ++i) {
        const std::size_t links = variant.pairs[i].links;
        AddRoundTripRow("serial, " + std::to_string(links) + (links == 1 ? " link" : " links") +
                            Suffix(variant),
                        rounds, 2 * i + 1, 2 * i, variant.diagnostics ? kGoalsOn : kGoalsOff);
    }
    if (variant.pairs.size() == 1) return;
    const double gain = rounds.Ratio(rounds.Count() - 1, 1, &Figures::per_second);
    AddFindingRow(
        std::to_string(variant.pairs.back().links) + " links against one" + Suffix(variant),
        Text("%.2f times the throughput", gain), "≥ 1.50", gain >= 1.5);
}

void Compare(benchmark::State& state, const Variant& variant) {
    const ScratchFolder folder;
    folder.WriteConfig(variant.diagnostics);
    const std::size_t links = variant.pairs.back().links;
    SerialFloor floor(links, variant.placement);
    PduSession session(LoadedPduFunctions(), links);
    PlaceLibrary(variant.placement, links);
    std::vector<Contender> contenders;
    for (const Pair& pair : variant.pairs)
        AddPair(pair, variant.placement.asking, &session, &floor, &contenders);
    Rounds rounds(std::move(contenders));
    RunRounds(state, &rounds);
    AddRows(variant, rounds);
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    RunUnderSimulator(argv);
    for (const Variant& variant : kVariants) {
        benchmark::RegisterBenchmark(
            (std::string("Serial/") + variant.name).c_str(),
            [&variant](benchmark::State& state) { Compare(state, variant); })
            ->Iterations(variant.rounds)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    return RunBenchmarks(argc, argv);
}
