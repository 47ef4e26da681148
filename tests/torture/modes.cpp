#include "torture/modes.h"

#include <gtest/gtest.h>

#include <vector>

namespace torture {
namespace {

struct Case {
    const char* name;
    std::vector<Mode> modes;
};

constexpr Mode kPeerMode = {"closing peer", kPeerFault, 1, 0};

const std::vector<Case>& Cases() {
    static const std::vector<Case> whole = {
        {"SurvivesOneFailedAllocation", {{"one allocation", kAllocationFault, 1, 0}}},
        {"SurvivesFiftyFailedAllocations", {{"fifty allocations", kAllocationFault, 50, 0}}},
        {"SurvivesFailedInputAndOutput",
         {{"input and output, first error", kIoFault, 1, 0},
          {"input and output, second error", kIoFault, 1, 1},
          {"input and output, third error", kIoFault, 1, 2},
          {"input and output, fourth error", kIoFault, 1, 3},
          {"input and output, fifth error", kIoFault, 1, 4}}},
        {"SurvivesClosingPeer", {kPeerMode}},
    };
    static const std::vector<Case> sample = {
        {"SurvivesFailedAllocations", {{"allocations", kAllocationFault, kInTurn, 0}}},
        {"SurvivesFailedInputAndOutput", {{"input and output", kIoFault, 1, kInTurn}}},
        {"SurvivesClosingPeer", {kPeerMode}},
    };
    return IsWhole() ? whole : sample;
}

class Survival : public testing::Test {
public:
    Survival(const NamedScenario& scenario, const std::vector<Mode>& modes)
        : scenario_(scenario), modes_(modes) {}
    void TestBody() override {
        for (const Mode& mode : modes_)
            Torture(scenario_.name, scenario_.make, mode);
    }

private:
    const NamedScenario& scenario_;
    const std::vector<Mode>& modes_;
};

}  // namespace

bool AddCases(const NamedScenario* scenarios, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        for (const Case& each : Cases()) {
            if (each.modes[0].kind == kPeerFault && !scenarios[i].has_peer) continue;
            testing::RegisterTest(
                scenarios[i].name, each.name, nullptr, nullptr, __FILE__, __LINE__,
                [scenario = &scenarios[i], modes = &each.modes]() -> testing::Test* {
                    return new Survival(*scenario, *modes);
                });
        }
    }
    return true;
}

}  // namespace torture
