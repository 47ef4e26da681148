// A dongle that is unplugged and replugged many times, and an application that recovers as
// described in docs/compatibility.md.

#include <gtest/gtest.h>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/steadiness.h"
#include "conformance/framework/vehicle.h"
#include "conformance/replug/recovery.h"

namespace conformance {
namespace {

class ReplugCycles : public SerialDongleWithoutLog {
protected:
    // The request during which the dongle is unplugged, or that no longer finds a dongle.
    void LoseARequest(EngineLink& link, bool in_flight) {
        if (in_flight) {
            simulator.Command("record clear");
            simulator.Command(R"(next 1 {"lost": true})");
            const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
            ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
            simulator.Unplug();
            ExpectLost(link.WaitFor(hCoP));
        } else {
            simulator.Unplug();
            ASSERT_TRUE(ScanUntilNotAvailable(hMod));
            ExpectLost(link.Request(ReadVin(), PositiveRead()));
        }
    }
    static void ExpectLost(const Outcome& outcome) {
        ASSERT_EQ(outcome.errors, std::vector<UNUM32>{0x101});
        ASSERT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    }

    void UseUnplugAndRecover(std::uint32_t cycle) {
        {
            ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
            EngineLink link(hMod);
            const Outcome first = link.Request(ReadVin(), PositiveRead());
            ASSERT_EQ(first.results.size(), 1u) << "the first request of cycle " << cycle;
            ASSERT_TRUE(first.errors.empty());
            LoseARequest(link, cycle % 4 != 0);
        }
        if (cycle % 8 < 4) simulator.Replug();  // before the destruct, or before the construct
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        if (cycle == kReplugWarmUp) before_ = MeasureProcess();
        if (cycle % 8 >= 4) simulator.Replug();
        Construct(FirstSettings());
    }

    ProcessFigures before_;
};

TEST_F(ReplugCycles, DoNotLeakAndTheFirstRequestOfEachSucceeds) {
    StdoutCapture console;
    for (std::uint32_t cycle = 0; cycle < kReplugWarmUp + kReplugCycles; ++cycle) {
        UseUnplugAndRecover(cycle);
        if (HasFailure()) {
            ADD_FAILURE() << "in cycle " << cycle;
            return;
        }
    }
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    const ProcessFigures after = MeasureSettled(before_);
    console.Text();
    ExpectSteady(std::to_string(kReplugCycles) + " replug cycles", before_, after);
}

}  // namespace
}  // namespace conformance
