// Dongles that come and go for a long time.
#include "conformance/ble/ble_fixture.h"
#include "conformance/framework/rounds.h"
#include "conformance/framework/steadiness.h"

namespace conformance {
namespace {

using BleCycles = BleDongles;

// All dongles at once, so that the scans' time does not count for each.
constexpr std::uint32_t kConnections = Rounds(200, 36, 36);
constexpr std::uint32_t kRounds = (kConnections + Radio::kDongles - 1) / Radio::kDongles;
constexpr std::uint32_t kWarmUp = 2;

TEST_F(BleCycles, LostAndFoundDonglesLeaveNothingBehind) {
    radio.Reset(Radio::kDongles);
    Construct();
    ProcessFigures before;
    for (std::uint32_t round = 0; round < kWarmUp + kRounds; ++round) {
        if (round == kWarmUp) before = MeasureProcess();
        ASSERT_TRUE(ScanUntil(Radio::kDongles)) << "in round " << round;
        for (int dongle = 0; dongle < Radio::kDongles; ++dongle)
            radio.Run(dongle, "lose");
    }
    ASSERT_TRUE(Eventually([&] { return radio.Connected() == 0; }));
    radio.Reset(0);
    ASSERT_TRUE(ScanUntil(0));  // clears up behind the last ones
    const ProcessFigures after = MeasureSettled(before);
    console.Text();
    ExpectSteady(std::to_string(kRounds * Radio::kDongles) + " lost connections", before, after);
}

}  // namespace
}  // namespace conformance
