// Many lost and new connections.
#include "conformance/ble/ble_fixture.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/steadiness.h"

namespace conformance {
namespace {

// All dongles at once, so that each scan serves all of them.
constexpr std::uint32_t kConnections = Rounds(200, 36, 36);
constexpr std::uint32_t kRounds = (kConnections + Radio::kDongles - 1) / Radio::kDongles;
constexpr std::uint32_t kWarmUp = 2;
constexpr std::uint32_t kLateLogins = 2;  // allowed in the whole test, for busy machines

class BleCycles : public BleDongles {
protected:
    // All dongles are connected before and after.
    void LoseAndFind(std::uint32_t rounds) {
        for (std::uint32_t round = 0; round < rounds; ++round) {
            for (int dongle = 0; dongle < Radio::kDongles; ++dongle)
                radio.Run(dongle, "lose");
            ASSERT_TRUE(FindAll()) << "in round " << round;
            ASSERT_EQ(radio.Connected(), Radio::kDongles) << "in round " << round;
        }
        console.Text();
    }
    // If a dongle does not log in within 500 ms, the library drops its module until it is
    // constructed again. A few such late logins are allowed.
    bool FindAll() {
        return Eventually([this] {
            if (Scan() == Radio::kDongles) return true;
            ++late_logins;
            modules.reset();
            Pdu().PDUDestruct();
            Construct();
            return false;
        });
    }

    std::uint32_t late_logins = 0;
};

TEST_F(BleCycles, LostAndFoundDonglesLeaveNothingBehind) {
    radio.Reset(Radio::kDongles);
    Construct();
    ASSERT_TRUE(ScanUntil(Radio::kDongles));
    ASSERT_NO_FATAL_FAILURE(LoseAndFind(kWarmUp));
    const ProcessFigures before = MeasureProcess();
    ASSERT_NO_FATAL_FAILURE(LoseAndFind(kRounds));
    const ProcessFigures after = MeasureSettled(before);
    ExpectSteady(std::to_string(kRounds * Radio::kDongles) + " lost connections", before, after);
    EXPECT_LE(late_logins, kLateLogins);
}

}  // namespace
}  // namespace conformance
