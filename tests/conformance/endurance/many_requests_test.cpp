#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/requester.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/steadiness.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

constexpr std::uint32_t kWorkers = 8;
constexpr std::uint32_t kWarmUp = 1'000;
// The maximum growth, whatever the number of requests: 100 000 requests that leak 32 bytes each
// would exceed it.
constexpr std::uint64_t kMemoryAllowance = 2 << 20;

class ManyRequests : public SerialDongleWithoutLog {
protected:
    void CreateLinks() {
        SetNumber("CP_P2Max", 4'000'000);
        for (std::uint32_t i = 0; i < kWorkers; ++i) {
            requesters_.push_back(
                std::make_unique<Requester>(hMod, kEngineRequest, kEngineResponse));
        }
    }

    // Sends on all links at once. Returns the number of requests with exactly one correct answer.
    std::uint32_t Send(std::uint32_t requests) {
        std::atomic<std::uint32_t> answered{0};
        {
            std::vector<std::unique_ptr<Thread>> threads;
            for (std::uint32_t i = 0; i < kWorkers; ++i) {
                const std::uint32_t share = requests / kWorkers + (i < requests % kWorkers ? 1 : 0);
                threads.push_back(std::make_unique<Thread>([this, i, share, &answered] {
                    for (std::uint32_t sent = 0; sent < share; ++sent) {
                        if (IsAnswered(*requesters_[i])) answered.fetch_add(1);
                    }
                }));
            }
        }
        return answered.load();
    }

    static bool IsAnswered(Requester& requester) {
        const Outcome outcome = requester.Request(ReadVin());
        return outcome.results.size() == 1 && outcome.errors.empty() &&
               outcome.FinalState() == PDU_COPST_FINISHED &&
               Hex(outcome.results[0].data).starts_with("62 F1 90 57 54 56");
    }

    std::vector<std::unique_ptr<Requester>> requesters_;
};

TEST_F(ManyRequests, AreAllAnsweredAndMemoryDoesNotGrowAfterTheFirstThousand) {
    StdoutCapture console;
    CreateLinks();
    EXPECT_EQ(Send(kWarmUp), kWarmUp);
    const ProcessFigures before = MeasureProcess();
    EXPECT_EQ(Send(kRequests), kRequests);
    const ProcessFigures after = MeasureSettled(before, {.memory = kMemoryAllowance});
    EXPECT_EQ(simulator.Count("in CREQ"), kWarmUp + kRequests);
    Pdu().PDUDestruct();
    console.Text();
    ExpectSteady(std::to_string(kRequests) + " requests", before, after,
                 {.memory = kMemoryAllowance});
}

}  // namespace
}  // namespace conformance
