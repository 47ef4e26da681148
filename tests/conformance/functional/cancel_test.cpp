// Cancelling a functional request ends it at once, whatever its time-out.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "conformance/framework/log_file.h"
#include "conformance/framework/waiting.h"
#include "conformance/functional/fleet.h"

namespace conformance {
namespace {

// The request's time-out, after which an unanswered attempt ends.
constexpr UNUM32 kTimeoutMs = 10'000;
// A tenth of a second is expected, more on a busy machine. Below this limit the time-out cannot
// have ended the request.
constexpr std::uint64_t kLimitMs = 5'000;

// Answers of the first control units of the fleet; each unit's number is its row.
HandMadeAnswer AnswerOf(UNUM32 units) {
    HandMadeAnswer answer;
    for (UNUM32 unit = 0; unit < units; ++unit)
        answer.Entry(unit, PartNumberOf(unit));
    return answer;
}

class FunctionalCancel : public FunctionalRequests {
protected:
    UNUM32 StartUnanswered(UnitsLink& link) {
        SetNumber("CP_P2Max", kTimeoutMs * 2000);
        simulator.Command("record clear");
        const UNUM32 hCoP = link.StartReading();
        EXPECT_TRUE(simulator.WaitFor(1, "in CREQ"));
        EXPECT_EQ(simulator.LastRequest()["timeout_ms"], kTimeoutMs);
        return hCoP;
    }
    // The time from the cancel to the final state, which must be cancelled.
    static std::uint64_t CancelMs(UnitsLink& link, UNUM32 hCoP) {
        const std::uint64_t start = TickMs();
        EXPECT_EQ(link.Cancel(hCoP), PDU_STATUS_NOERROR);
        const Outcome outcome = link.WaitFor(hCoP);
        const std::uint64_t elapsed = TickMs() - start;
        EXPECT_EQ(outcome.FinalState(), PDU_COPST_CANCELLED);
        EXPECT_EQ(outcome.errors, std::vector<UNUM32>{259});
        EXPECT_TRUE(outcome.results.empty());
        EXPECT_LT(elapsed, kLimitMs);
        return elapsed;
    }
};

TEST_F(FunctionalCancel, TakesEffectLongBeforeTheTimeOut) {
    UnitsLink link(hMod, kUnits);
    simulator.Command(R"(behaviour {"silent": true})");
    std::uint64_t longest = 0;
    for (int round = 0; round < 10; ++round) {
        longest = std::max(longest, CancelMs(link, StartUnanswered(link)));
    }
    std::printf("longest time from a cancel to its effect: %llu ms\n",
                static_cast<unsigned long long>(longest));
}

TEST_F(FunctionalCancel, EndsTheWaitForABusyDongle) {
    UnitsLink link(hMod, kUnits);
    simulator.Command(R"(behaviour {"lost": true, "busy": 3})");
    const UNUM32 hCoP = StartUnanswered(link);
    ASSERT_TRUE(simulator.WaitFor(3, "out BUSY"));
    CancelMs(link, hCoP);
}

TEST_F(FunctionalCancel, EndsTheWaitForATurn) {
    constexpr std::size_t kInFlight = 10;  // the library's maximum
    simulator.Command(R"(behaviour {"lost": true})");
    std::vector<std::unique_ptr<UnitsLink>> links;
    for (std::size_t i = 0; i < kInFlight; ++i) {
        StartUnanswered(*links.emplace_back(std::make_unique<UnitsLink>(hMod, 2u)));
    }
    UnitsLink waiting(hMod, kUnits);
    simulator.Command("record clear");
    const LogCapture log;
    const UNUM32 hCoP = waiting.StartReading();
    ASSERT_TRUE(Eventually([&] {
        return log.HasLike("[CommThreadFunc:*]    send multi-request packet with 64 entries");
    }));
    CancelMs(waiting, hCoP);
    EXPECT_EQ(simulator.Count("in CREQ"), 0u);
}

TEST_F(FunctionalCancel, DoesNotAffectOtherRequests) {
    UnitsLink cancelled(hMod, kUnits);
    UnitsLink other(hMod, kUnits);
    simulator.Command(R"(next 1 {"lost": true})");
    const UNUM32 lost = StartUnanswered(cancelled);
    simulator.Command(R"(next 1 {"delay_ms": 500})");
    const UNUM32 delayed = other.StartReading();
    ASSERT_TRUE(simulator.WaitFor(2, "in CREQ"));
    CancelMs(cancelled, lost);
    ExpectAnswers(other.WaitFor(delayed), AllBut(kUnits));
}

TEST_F(FunctionalCancel, LeavesTheLinkUsableAndTheLateAnswerUnclaimed) {
    UnitsLink link(hMod, 20);
    simulator.HoldNextRequest();
    const UNUM32 hCoP = StartUnanswered(link);
    CancelMs(link, hCoP);
    simulator.Command(AnswerOf(20).Command(hCoP));
    ASSERT_TRUE(simulator.WaitFor(1, "out CRES"));
    link.SetUnits({30, 31});
    ExpectAnswers(link.ReadPartNumbers(), {{0, 30}, {1, 31}});
}

TEST_F(FunctionalCancel, EndsAQueuedRequestUnsent) {
    UnitsLink link(hMod, 20);
    simulator.HoldNextRequest();
    const UNUM32 running = link.StartReading();
    const UNUM32 queued = link.StartReading();
    EXPECT_EQ(link.Cancel(queued), PDU_STATUS_NOERROR);
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    simulator.Command(AnswerOf(20).Command(running));
    ExpectAnswers(link.WaitFor(running), AllBut(20));
    const Outcome outcome = link.WaitFor(queued);
    EXPECT_EQ(outcome.states, (std::vector<UNUM32>{PDU_COPST_EXECUTING, PDU_COPST_CANCELLED}));
    EXPECT_EQ(outcome.errors, std::vector<UNUM32>{259});
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
}

}  // namespace
}  // namespace conformance
