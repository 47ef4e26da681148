#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <memory>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

constexpr std::uint32_t kLinks = 100;

struct ControlUnitOfCar {
    const char* name;
    UNUM32 request;
    UNUM32 response;
};
constexpr ControlUnitOfCar kUnits[] = {{"engine", kEngineRequest, kEngineResponse},
                                       {"transmission", kGearboxRequest, kGearboxResponse},
                                       {"abs", kAbsRequest, kAbsResponse}};

// A link that requests a data identifier of its own.
struct NumberedLink {
    NumberedLink(UNUM32 hMod, std::uint32_t its_number, Simulator& simulator)
        : link(hMod), number(its_number) {
        const ControlUnitOfCar& unit = kUnits[number % 3];
        char command[64];
        std::snprintf(command, sizeof command, "data %s 20%02X %02X %02X", unit.name, number,
                      number, number ^ 0xFF);
        simulator.Command(command);
        link.Address(unit.request, unit.response);
        link.Connect();
        link.DropEvents();
    }
    std::vector<UNUM8> Question() const { return {0x22, 0x20, static_cast<UNUM8>(number)}; }
    std::vector<UNUM8> Answer() const {
        const auto byte = static_cast<UNUM8>(number);
        return {0x62, 0x20, byte, byte, static_cast<UNUM8>(byte ^ 0xFF)};
    }

    void Start(PDU_COP_CTRL_DATA* control) {
        const UNUM32 hCoP = link.Start(PDU_COPT_SENDRECV, Question(), control);
        outcomes[hCoP].hCoP = hCoP;
    }
    // True once all requests have ended.
    bool TakeEvents() {
        while (const auto event = NextEvent(link.hMod(), link.hCLL())) {
            const auto outcome = outcomes.find(event->hCop);
            if (outcome == outcomes.end()) {
                ADD_FAILURE() << "link " << number << " got an event of " << event->hCop;
                continue;
            }
            outcome->second.Add(*event);
            if (outcome->second.IsFinal()) ++ended;
        }
        return ended == outcomes.size();
    }
    std::size_t RightAnswers() const {
        std::size_t right = 0;
        for (const auto& [hCoP, outcome] : outcomes) {
            if (outcome.results.size() == 1 && outcome.results[0].data == Answer()) ++right;
        }
        return right;
    }

    Link link;
    std::uint32_t number;
    std::map<UNUM32, Outcome> outcomes;
    std::size_t ended = 0;
};

class ManyLinks : public SerialDongleWithoutLog {
protected:
    void CreateLinks() {
        SetNumber("CP_P2Max", 4'000'000);
        for (std::uint32_t i = 0; i < kLinks; ++i) {
            links_.push_back(std::make_unique<NumberedLink>(hMod, i, simulator));
        }
    }
    bool TakeEvents() {
        bool all = true;
        for (const auto& link : links_)
            all = link->TakeEvents() && all;
        return all;
    }
    std::vector<std::unique_ptr<NumberedLink>> links_;
};

TEST_F(ManyLinks, WorkInParallelAndEachGetsItsOwnAnswers) {
    StdoutCapture console;
    CreateLinks();
    ControlData control(PositiveRead());
    for (std::uint32_t i = 0; i < kRequestsPerLink; ++i) {
        for (const auto& link : links_)
            link->Start(control.Data());
    }
    EXPECT_TRUE(Eventually([this] { return TakeEvents(); }, std::chrono::seconds(60)));
    for (const auto& link : links_) {
        EXPECT_EQ(link->RightAnswers(), kRequestsPerLink) << "link " << link->number;
    }
    EXPECT_EQ(simulator.Count("in CREQ"), kLinks * kRequestsPerLink);
}

}  // namespace
}  // namespace conformance
