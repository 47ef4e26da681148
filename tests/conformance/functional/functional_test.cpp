// One functional request to many control units, well-behaved or not.

#include <gtest/gtest.h>

#include <memory>

#include "conformance/framework/log_file.h"
#include "conformance/framework/waiting.h"
#include "conformance/functional/fleet.h"

namespace conformance {
namespace {

constexpr UNUM32 kCounts[] = {2, 20, 64};

TEST_F(FunctionalRequests, WithOneRowAreSentAsPhysicalRequests) {
    UnitsLink link(hMod, 1);
    ExpectAnswers(link.ReadPartNumbers(), AllBut(1));
    EXPECT_EQ(simulator.LastRequest()["form"], "single");
    EXPECT_EQ(simulator.LastRequest()["physical"], "600");
}

TEST_F(FunctionalRequests, ReachEveryControlUnitWithOnePacket) {
    for (const UNUM32 count : kCounts) {
        SCOPED_TRACE(count);
        UnitsLink link(hMod, count);
        simulator.Command("record clear");
        ExpectAnswers(link.ReadPartNumbers(), AllBut(count));
        EXPECT_EQ(simulator.Count("in CREQ"), 1u);
        EXPECT_EQ(simulator.Last(1, "in CREQ")[0]["length"], 32 + (count * 8 + 3 + 7) / 8 * 8);
        const nlohmann::json request = simulator.LastRequest();
        EXPECT_EQ(request["form"], "multi");
        EXPECT_EQ(request["functional"], "7DF");
        EXPECT_EQ(request["timeout_ms"], 2000);
        EXPECT_EQ(request["entries"].size(), count);
    }
}

TEST_F(FunctionalRequests, SilentControlUnitsHaveNoResult) {
    for (const UNUM32 count : kCounts) {
        SCOPED_TRACE(count);
        UnitsLink link(hMod, count);
        SetNumber("CP_P2Max", 200'000);
        Unit(count - 1, R"({"silent": true})");
        ExpectAnswers(link.ReadPartNumbers(), AllBut(count, {count - 1}));
        Unit(count - 1, R"({"silent": false})");
    }
}

// The dongle reports that there were no answers, which is no error.
TEST_F(FunctionalRequests, WithoutAnyAnswerFinishWithoutResultOrError) {
    UnitsLink link(hMod, kUnits);
    SetNumber("CP_P2Max", 200'000);
    simulator.Command(R"(behaviour {"silent": true})");
    ExpectAnswers(link.ReadPartNumbers(), {});
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
}

TEST_F(FunctionalRequests, LateControlUnitIsWaitedForAndKeepsItsRow) {
    for (const UNUM32 count : kCounts) {
        SCOPED_TRACE(count);
        UnitsLink link(hMod, count);
        Unit(0, R"({"delay_ms": 150})");
        ExpectAnswers(link.ReadPartNumbers(), AllBut(count));
    }
}

TEST_F(FunctionalRequests, ControlUnitThatAnswersAfterTheTimeOutHasNoResult) {
    for (const UNUM32 count : kCounts) {
        SCOPED_TRACE(count);
        UnitsLink link(hMod, count);
        SetNumber("CP_P2Max", 200'000);
        Unit(1, R"({"delay_ms": 3000})");
        ExpectAnswers(link.ReadPartNumbers(), AllBut(count, {1}));
    }
}

TEST_F(FunctionalRequests, ControlUnitThatAnswersTwiceHasOneResult) {
    for (const UNUM32 count : kCounts) {
        SCOPED_TRACE(count);
        UnitsLink link(hMod, count);
        Unit(1, R"({"repeat": 1})");
        const LogCapture log;
        ExpectAnswers(link.ReadPartNumbers(), AllBut(count));
        EXPECT_TRUE(log.Has("[CommRequestMulti]   Received multi packet with " +
                            std::to_string(count + 1) + " entries"));
    }
}

TEST_F(FunctionalRequests, NegativeAnswerIsReportedIfItIsExpected) {
    UnitsLink link(hMod, 20);
    Unit(3, R"({"negative": "22"})");
    ExpectAnswers(link.ReadPartNumbers(), AllBut(20, {3}));
    const Outcome any = link.Request(ReadPartNumber(), AnyResponse());
    ASSERT_EQ(any.results.size(), 20u);
    EXPECT_EQ(Hex(any.results[3].data), "7F 22 22");
    EXPECT_EQ(any.results[3].unique_id, 3u);
}

TEST_F(FunctionalRequests, LateSilentAndRepeatedAnswersMayBeCombined) {
    UnitsLink link(hMod, kUnits);
    SetNumber("CP_P2Max", 1'000'000);
    Unit(5, R"({"delay_ms": 100})");
    Unit(17, R"({"silent": true})");
    Unit(40, R"({"repeat": 1})");
    Unit(63, R"({"pending": 2})");
    ExpectAnswers(link.ReadPartNumbers(), AllBut(kUnits, {17}));
}

TEST_F(FunctionalRequests, FragmentedAnswerOf64IsReassembled) {
    UnitsLink link(hMod, kUnits);
    simulator.Command(R"(behaviour {"fragment": 40})");
    ExpectAnswers(link.ReadPartNumbers(), AllBut(kUnits));
    EXPECT_GE(simulator.Count("out FRAG"), 20u);
}

TEST_F(FunctionalRequests, SealedAnswerIsOpened) {
    UnitsLink link(hMod, kUnits);
    simulator.Command(R"(next 1 {"seal": true})");
    ExpectAnswers(link.ReadPartNumbers(), AllBut(kUnits));
}

TEST_F(FunctionalRequests, WithoutBytesAreSent) {
    UnitsLink link(hMod, 20);
    const Outcome outcome = link.Request({});
    EXPECT_TRUE(outcome.errors.empty());
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
    EXPECT_EQ(simulator.LastRequest()["form"], "multi");
}

TEST_F(FunctionalRequests, WithoutControlDataReportNothing) {
    UnitsLink link(hMod, 20);
    ExpectAnswers(link.WaitFor(link.Start(PDU_COPT_SENDRECV, ReadPartNumber())), {});
}

TEST_F(FunctionalRequests, InFlightKeepTheTableTheyStartedWith) {
    UnitsLink link(hMod, 20);
    simulator.Command(R"(behaviour {"delay_ms": 200})");
    const UNUM32 hCoP = link.StartReading();
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    link.SetUnits({7, 8});
    ExpectAnswers(link.WaitFor(hCoP), AllBut(20));
    ExpectAnswers(link.ReadPartNumbers(), {{0, 7}, {1, 8}});
}

TEST_F(FunctionalRequests, OfManyLinksEachGetTheirOwnAnswers) {
    constexpr UNUM32 kLinks = 12;  // more than the library's maximum in flight
    constexpr UNUM32 kRounds = 5;
    std::vector<std::unique_ptr<UnitsLink>> links;
    for (UNUM32 i = 0; i < kLinks; ++i) {
        links.push_back(
            std::make_unique<UnitsLink>(hMod, std::vector<UNUM32>{i, i + 20, i + 40, i + 41}));
    }
    std::vector<std::vector<UNUM32>> started(kLinks);
    for (UNUM32 round = 0; round < kRounds; ++round) {
        for (UNUM32 i = 0; i < kLinks; ++i)
            started[i].push_back(links[i]->StartReading());
    }
    for (UNUM32 i = 0; i < kLinks; ++i) {
        SCOPED_TRACE(i);
        for (const UNUM32 hCoP : started[i]) {
            ExpectAnswers(links[i]->WaitFor(hCoP), {{0, i}, {1, i + 20}, {2, i + 40}, {3, i + 41}});
        }
    }
}

TEST_F(FunctionalRequests, InFlightEndWithTheirLink) {
    UnitsLink link(hMod, kUnits);
    simulator.Command(R"(behaviour {"lost": true})");
    link.StartReading();
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    const LogCapture log;
    EXPECT_EQ(link.Destroy(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    EXPECT_EQ(simulator.Count("in CREQ"), 1u) << "the request was not repeated";
}

TEST_F(FunctionalRequests, InFlightEndWithTheirDongle) {
    UnitsLink link(hMod, kUnits);
    simulator.Command(R"(behaviour {"lost": true})");
    const UNUM32 hCoP = link.StartReading();
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    simulator.Unplug();
    ExpectError(link.WaitFor(hCoP), 259);
}

}  // namespace
}  // namespace conformance
