// Functional requests to 64 control units in large numbers.

#include <gtest/gtest.h>

#include <memory>

#include "conformance/framework/log_file.h"
#include "conformance/framework/requester.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/steadiness.h"
#include "conformance/framework/waiting.h"
#include "conformance/functional/fleet.h"

namespace conformance {
namespace {

constexpr std::uint32_t kWarmUp = 200;
// For the whole test. 10 000 requests that leak 256 bytes each, less than the cost of one of their
// 64 answers, would exceed it.
constexpr std::uint64_t kMemoryAllowance = 2 << 20;

class ManyFunctionalRequests : public SerialDongleWithoutLog {
protected:
    static std::uint32_t Send(Requester& requester, std::uint32_t requests) {
        std::uint32_t answered = 0;
        for (std::uint32_t sent = 0; sent < requests; ++sent) {
            if (AllAnswered(requester.Request(ReadPartNumber()))) ++answered;
        }
        return answered;
    }
    static bool AllAnswered(const Outcome& outcome) {
        if (outcome.results.size() != kUnits || !outcome.errors.empty()) return false;
        for (UNUM32 row = 0; row < kUnits; ++row) {
            const Result& result = outcome.results[row];
            if (result.unique_id != row || result.data != PartNumberOf(row)) return false;
        }
        return outcome.FinalState() == PDU_COPST_FINISHED;
    }
};

TEST_F(ManyFunctionalRequests, AreAllAnsweredAndMemoryDoesNotGrowAfterTheFirst) {
    StdoutCapture console;
    SetNumber("CP_P2Max", 20'000'000);
    SetNumber("CP_CanFuncReqId", kFunctionalRequest);
    UniqueTable table;
    for (UNUM32 unit = 0; unit < kUnits; ++unit)
        table.ControlUnit(unit, RequestOf(unit), ResponseOf(unit));
    Requester requester(hMod, table);
    EXPECT_EQ(Send(requester, kWarmUp), kWarmUp);
    const ProcessFigures before = MeasureProcess();
    EXPECT_EQ(Send(requester, kFunctionalRequests), kFunctionalRequests);
    const ProcessFigures after = MeasureSettled(before, {.memory = kMemoryAllowance});
    EXPECT_EQ(simulator.Count("in CREQ"), kWarmUp + kFunctionalRequests);
    Pdu().PDUDestruct();
    console.Text();
    ExpectSteady(std::to_string(kFunctionalRequests) + " functional requests to 64 control units",
                 before, after, {.memory = kMemoryAllowance});
}

}  // namespace
}  // namespace conformance
