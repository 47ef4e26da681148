// PDUDestruct during all kinds of activity.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

#include "conformance/framework/callbacks.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/steadiness.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

using std::chrono::steady_clock;

// The result of a second thread's scan, destroyed after the next construct.
struct Scan {
    PDU_MODULE_ITEM* modules = nullptr;
    T_PDU_ERROR status = PDU_ERR_FCT_FAILED;
};

class DestructRounds : public SerialDongleWithoutLog {
protected:
    // Leaves the library destructed.
    void RunRound() {
        simulator.Command("record clear");
        simulator.Command(R"(next 1 {"lost": true})");
        EngineLink link(hMod);
        ASSERT_EQ(link.Register(callback_.Function()), PDU_STATUS_NOERROR);
        link.StartRequest(ReadVin(), PositiveRead());
        ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));

        Scan scan;
        Thread scanner([&scan] { scan.status = Pdu().PDUGetModuleIds(&scan.modules); });
        ASSERT_TRUE(simulator.WaitFor(1, "in IDEN"));
        const auto start = steady_clock::now();
        ASSERT_TRUE(EndsInTime([] { EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR); }));
        longest_ = std::max(longest_, steady_clock::now() - start);
        scanner.Join();
        EXPECT_EQ(scan.status, PDU_STATUS_NOERROR);
        left_over_ = scan.modules;
    }
    void GiveBackModules() {
        EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(left_over_)),
                  PDU_STATUS_NOERROR);
    }

    CallbackSpy callback_;
    PDU_MODULE_ITEM* left_over_ = nullptr;
    steady_clock::duration longest_{};
};

TEST_F(DestructRounds, EndInTimeDuringARequestAndAScanWithACallbackRegistered) {
    constexpr std::uint32_t kWarmUp = 10;
    StdoutCapture console;
    ProcessFigures before;
    for (std::uint32_t round = 0; round < kWarmUp + kDestructRounds; ++round) {
        RunRound();
        if (round == kWarmUp) before = MeasureProcess();
        if (HasFailure()) {
            ADD_FAILURE() << "in round " << round;
            return;
        }
        Construct(FirstSettings());
        GiveBackModules();
    }
    EXPECT_GT(callback_.Count(), 0u);
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const ProcessFigures after = MeasureSettled(before);
    console.Text();
    std::printf("longest PDUDestruct: %lld ms\n",
                static_cast<long long>(
                    std::chrono::duration_cast<std::chrono::milliseconds>(longest_).count()));
    ExpectSteady(std::to_string(kDestructRounds) + " rounds", before, after);
}

// There is never a moment without a call, and the destruct needs none.
TEST_F(DestructRounds, AreNotDelayedByThreadsThatKeepCalling) {
    std::atomic<bool> stop{false};
    std::vector<std::unique_ptr<Thread>> threads;
    for (int i = 0; i < 8; ++i) {
        threads.push_back(std::make_unique<Thread>([&stop] {
            UNUM32 status = 0;
            while (!stop.load()) {
                Pdu().PDUGetStatus(0, 0, PDU_HANDLE_UNDEF, &status, nullptr, nullptr);
            }
        }));
    }
    constexpr std::chrono::seconds kLimit{4};  // less than the wait for calls that do not end
    EXPECT_TRUE(EndsInTime([] { Pdu().PDUDestruct(); }, kLimit));
    stop.store(true);
}

}  // namespace
}  // namespace conformance
