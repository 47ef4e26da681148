// Functional requests to 1, 8 and 64 control units, through the exported functions of the shared
// library. Their floor transfers the same bytes to and from a dongle of the same simulator.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "dongle_floor.h"
#include "pdu_session.h"
#include "placement.h"
#include "report.h"
#include "rounds.h"
#include "scratch_folder.h"
#include "simulated_dongle.h"

namespace tarvik::bench {
namespace {

constexpr std::uint32_t kFirstRequestId = 0x600;
constexpr std::uint32_t kFirstResponseId = 0x680;
constexpr std::uint32_t kTimeoutMs = 1000;
constexpr std::uint8_t kReadVin[] = {0x22, 0xF1, 0x90};
constexpr std::size_t kAnswerBytes = 20;  // 62 F1 90 and 17 characters

constexpr std::size_t kUnits[] = {1, 8, 64};
constexpr double kMostTimesTheFloor = 2.0;  // with 64 control units
constexpr double kMostGrowth = 1.25;        // of the cost per additional control unit

struct Variant {
    const char* name;
    bool diagnostics;  // debug log and trace
    Placement placement;
    std::size_t requests;  // in one batch
    int rounds;
};

// The order matters: an open log stays open for the process.
const Variant kVariants[] = {
    {"off/two_cores", false, kTwoCores, 100, 25},
    {"off/one_core", false, kOneCore, 100, 25},
    {"on/one_core", true, kOneCore, 50, 15},
};

std::vector<PduSession::Unit> FirstUnits(std::size_t count) {
    std::vector<PduSession::Unit> units;
    for (std::uint32_t i = 0; i < count; ++i)
        units.push_back({kFirstRequestId + i, kFirstResponseId + i});
    return units;
}

std::size_t RoundedUp(std::size_t bytes) { return (bytes + 7) / 8 * 8; }

void AppendU32(std::uint32_t value, std::vector<std::uint8_t>* bytes) {
    for (int shift = 0; shift < 32; shift += 8)
        bytes->push_back(static_cast<std::uint8_t>(value >> shift));
}

// A CREQ in multi form to this many control units, and the size of the CRES.
DongleFloor::Exchange ExchangeWith(std::size_t count) {
    const std::size_t length = 32 + RoundedUp(8 * count + sizeof kReadVin);
    std::vector<std::uint8_t> request = {'Q', 'E', 'R', 'C'};
    AppendU32(static_cast<std::uint32_t>(length), &request);
    AppendU32(0x7DF, &request);
    AppendU32(0xFFFFEEEE, &request);
    AppendU32(static_cast<std::uint32_t>(count), &request);
    AppendU32(kTimeoutMs, &request);
    AppendU32(sizeof kReadVin, &request);
    AppendU32(1, &request);
    for (const PduSession::Unit& unit : FirstUnits(count)) {
        AppendU32(unit.request, &request);
        AppendU32(unit.response, &request);
    }
    request.insert(request.end(), std::begin(kReadVin), std::end(kReadVin));
    request.resize(length);
    return {std::move(request), 20 + count * RoundedUp(8 + kAnswerBytes)};
}

std::string Suffix(const Variant& variant) {
    return std::string(", log and trace ") + (variant.diagnostics ? "on" : "off") + ", " +
           variant.placement.text;
}

// The cost per additional control unit beyond the floor's bytes: from 1 to 8, and from 8 to 64.
void AddCostPerUnit(const Variant& variant, const Rounds& rounds) {
    const auto time = [&](std::size_t size) { return rounds.Medians(2 * size + 1).p50_us; };
    const double few = (time(1) - time(0)) / static_cast<double>(kUnits[1] - kUnits[0]);
    const double many = (time(2) - time(1)) / static_cast<double>(kUnits[2] - kUnits[1]);
    AddFindingRow("one more control unit, from 1 to 8 and from 8 to 64" + Suffix(variant),
                  Text("%.2f µs", few) + " and " + Text("%.2f µs", many),
                  Text("≤ %.2f times", kMostGrowth), many <= kMostGrowth * few);
}

void AddRows(const Variant& variant, const Rounds& rounds) {
    for (std::size_t i = 0; i < std::size(kUnits); ++i) {
        const bool has_goal = !variant.diagnostics && kUnits[i] == 64;
        AddRoundTripRow("functional, " + std::to_string(kUnits[i]) +
                            (kUnits[i] == 1 ? " control unit" : " control units") + Suffix(variant),
                        rounds, 2 * i + 1, 2 * i,
                        {.time = has_goal ? kMostTimesTheFloor : 0.0, .p99 = 0});
    }
    if (!variant.diagnostics) AddCostPerUnit(variant, rounds);
}

void Compare(benchmark::State& state, const Variant& variant) {
    const ScratchFolder folder;
    folder.WriteConfig(variant.diagnostics);
    std::vector<DongleFloor::Exchange> exchanges;
    for (const std::size_t count : kUnits)
        exchanges.push_back(ExchangeWith(count));
    DongleFloor floor(HiddenPort(), std::move(exchanges), variant.placement);
    PduSession session(LoadedPduFunctions(), std::size(kUnits));
    PlaceLibrary(variant.placement, std::size(kUnits));
    std::vector<Contender> contenders;
    for (std::size_t i = 0; i < std::size(kUnits); ++i) {
        session.AskUnits(i, FirstUnits(kUnits[i]));
        const std::string count = std::to_string(kUnits[i]);
        contenders.push_back({"floor_" + count, 1, variant.requests, variant.placement.asking,
                              [&floor, i](std::size_t) { return floor.Ask(i); }});
        contenders.push_back({"units_" + count, 1, variant.requests, variant.placement.asking,
                              [&session, i](std::size_t) { return session.Ask(i); }});
    }
    Rounds rounds(std::move(contenders));
    RunRounds(state, &rounds);
    AddRows(variant, rounds);
}

}  // namespace
}  // namespace tarvik::bench

int main(int argc, char** argv) {
    using namespace tarvik::bench;
    RunUnderSimulator(argv, "fleet");
    for (const Variant& variant : kVariants) {
        benchmark::RegisterBenchmark(
            (std::string("Functional/") + variant.name).c_str(),
            [&variant](benchmark::State& state) { Compare(state, variant); })
            ->Iterations(variant.rounds)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    return RunBenchmarks(argc, argv);
}
