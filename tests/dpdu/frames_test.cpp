// Unit tests of frames, lists of control units and live tables.

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "console/failure.h"
#include "console/output.h"
#include "raw/can_frame.h"
#include "raw/frame_table.h"
#include "temporary_file.h"
#include "uds/unit_list.h"

namespace dpdu {
using namespace std::chrono_literals;
namespace {

TEST(CanFrameText, CandumpLogHasNoSpacesInTheFrame) {
    EXPECT_EQ(CandumpLogLine({0x7E8, false, {0x01, 0xAB}}, 1'700'000'000'012'000),
              "(1700000000.012000) can0 7E8#01AB");
    EXPECT_EQ(CandumpLogLine({0x7E8, true, {}}, 0), "(000.000000) can0 000007E8#");
}

TEST(CanFrameText, RawBytesStartWithTheIdentifierMostSignificantFirst) {
    EXPECT_EQ(RawBytes({0x18DAF110, true, {0x02}}), (Bytes{0x18, 0xDA, 0xF1, 0x10, 0x02}));
}

TEST(CanFilters, MaskSelectsTheBitsToCompare) {
    const auto filter = ParseCanFilter("7E0/7F8");
    ASSERT_TRUE(filter);
    EXPECT_TRUE(Passes({*filter}, 0x7E7));
    EXPECT_FALSE(Passes({*filter}, 0x7E8));
    EXPECT_TRUE(Passes({}, 0x123));
    EXPECT_FALSE(ParseCanFilter("7E0/"));
}

TEST(FrameTimes, ContinueAcrossTheWrapOf32Bits) {
    const auto now = pdu::StampClock::HostClock::now();
    FrameTimes times;
    EXPECT_EQ(times.SinceFirst(0xFFFFFFF0, now), 0u);
    EXPECT_EQ(times.SinceFirst(0x10, now), 0x20u);
    const auto later = now + pdu::Microseconds(0xFFFFFFFF);
    EXPECT_EQ(times.SinceFirst(0x0F, later), 0x20u + std::uint64_t{0xFFFFFFFF});
}

TEST(FrameTimes, ASilenceLongerThanTheWrapCountsInFull) {
    const auto now = pdu::StampClock::HostClock::now();
    FrameTimes times;
    EXPECT_EQ(times.SinceFirst(100, now), 0u);
    const std::uint64_t two_wraps = std::uint64_t{2} << 32;
    EXPECT_EQ(times.SinceFirst(150, now + pdu::Microseconds(two_wraps)), two_wraps + 50);
}

TEST(FrameTimes, AStampBeforeTheLastOneIsNoWrap) {
    const auto now = pdu::StampClock::HostClock::now();
    FrameTimes times;
    EXPECT_EQ(times.SinceFirst(1000, now), 0u);
    EXPECT_EQ(times.SinceFirst(1500, now), 500u);
    EXPECT_EQ(times.SinceFirst(1400, now), 400u);
    EXPECT_EQ(times.SinceFirst(900, now), 0u);
}

TEST(FrameTotals, PeriodIsTheMeanOfAllIntervals) {
    FrameCounts counts;
    for (const std::uint64_t time_us : {0u, 10'000u, 30'000u})
        counts.Add({0x123, false, {0x01}}, time_us, FrameRate::Time());
    ASSERT_EQ(counts.Rows().size(), 2u);
    EXPECT_EQ(counts.Rows()[1], (Row{"123", "3", "15.0 ms", "01"}));
}

TEST(FrameTotals, AFrameStampedBeforeTheLastOneDoesNotShortenTheTime) {
    FrameCounts counts;
    for (const std::uint64_t time_us : {10'000u, 30'000u, 9'000u})
        counts.Add({0x123, false, {0x01}}, time_us, FrameRate::Time());
    EXPECT_EQ(counts.Rows().at(1), (Row{"123", "3", "10.0 ms", "01"}));
}

// ---------------------------------------------------------------------------------------------

std::string UnitTexts(const std::string& list) {
    std::string text;
    for (const NamedUnit& unit : ParseUnits(list))
        text += (text.empty() ? "" : " ") + EcuAddressText(unit.address);
    return text;
}

TEST(UnitLists, ResponseIdentifierIsDerivedFromTheRequest) {
    EXPECT_EQ(UnitTexts("7E0"), "7E0:7E8");
    EXPECT_EQ(UnitTexts("18DA10F1"), "18DA10F1:18DAF110");
    EXPECT_EQ(UnitTexts("713:77D"), "713:77D");
}

TEST(UnitLists, RangeCountsInTheTargetByteOfLongIdentifiers) {
    EXPECT_EQ(UnitTexts("7E0-7E2,713:77D"), "7E0:7E8 7E1:7E9 7E2:7EA 713:77D");
    EXPECT_EQ(UnitTexts("18DA10F1-18DA11F1"), "18DA10F1:18DAF110 18DA11F1:18DAF111");
}

TEST(UnitLists, RangeHasAtMost256Units) {
    EXPECT_EQ(ParseUnits("100-1FF").size(), 256u);
    EXPECT_THROW(ParseUnits("100-200"), UsageError);
}

TEST(UnitLists, InvalidLineIsNamed) {
    std::istringstream stream("7E0 engine\n\nnonsense\n");
    try {
        ReadUnits(&stream, "car.txt");
        FAIL() << "nothing was thrown";
    } catch (const UsageError& error) {
        EXPECT_EQ(std::string(error.what()).rfind("car.txt, line 3: 'nonsense'", 0), 0u)
            << error.what();
    }
}

// ---------------------------------------------------------------------------------------------

constexpr FrameRate::Time kStart{std::chrono::hours(1)};

TEST(FrameRates, CountTheLastTwoSeconds) {
    FrameRate rate;
    EXPECT_EQ(rate.PerSecond(kStart), std::nullopt);
    rate.Add(kStart);
    EXPECT_EQ(rate.PerSecond(kStart + 499ms), std::nullopt) << "too early to tell";
    for (int i = 1; i <= 100; ++i)
        rate.Add(kStart + i * 10ms);
    EXPECT_NEAR(rate.PerSecond(kStart + 1s).value(), 101, 0.1);
    for (int i = 101; i <= 1000; ++i)
        rate.Add(kStart + i * 10ms);
    EXPECT_NEAR(rate.PerSecond(kStart + 10s).value(), 100, 2);
    EXPECT_NEAR(rate.PerSecond(kStart + 11s).value(), 50, 6);
    EXPECT_EQ(rate.PerSecond(kStart + 12s + 200ms), 0);
    // After a pause of any length.
    rate.Add(kStart + 1h);
    rate.Add(kStart + 1h + 400ms);
    EXPECT_NEAR(rate.PerSecond(kStart + 1h + 800ms).value(), 1, 0.2);
}

TEST(LiveLines, ReplaceTheLast) {
    const File file(std::tmpfile());
    ASSERT_TRUE(file);
    Output output(file.get(), false, true);
    output.LiveLines({"one", "two"});
    output.LiveLines({"three"});
    output.LiveLines({});
    output.Flush();
    EXPECT_EQ(Content(file.get()),
              "\x1b[Kone\n\x1b[Ktwo\n\x1b[J"
              "\x1b[2A\x1b[Kthree\n\x1b[J"
              "\x1b[1A\x1b[J");
}

// Three identifiers of which one has 29 bits, with two frames of eight bytes each.
FrameCounts SomeFrames() {
    FrameCounts counts;
    for (const std::uint8_t last : {std::uint8_t{1}, std::uint8_t{2}}) {
        const FrameRate::Time time = kStart + (last - 1) * 1s;
        const std::uint64_t time_us = last * std::uint64_t{1'000'000};
        counts.Add({0x123, false, {0, 0, 0, 0, 0, 0, 0, last}}, time_us, time);
        counts.Add({0x7E8, false, {last}}, time_us, time);
        counts.Add({0x18DAF110, true, {0, 0, 0, 0, 0, 0, 0, 0}}, time_us, time);
    }
    return counts;
}

using Lines = std::vector<std::string>;

TEST(FrameTables, ShowCountRateAndPeriodWhereTheyFit) {
    const FrameCounts counts = SomeFrames();
    EXPECT_EQ(FrameTableLines(counts, kStart + 1s, {.columns = 80}),
              (Lines{"ID        COUNT  RATE   PERIOD     LAST DATA",
                     "123       2      2.0/s  1000.0 ms  00 00 00 00 00 00 00 02",
                     "7E8       2      2.0/s  1000.0 ms  02",
                     "18DAF110  2      2.0/s  1000.0 ms  00 00 00 00 00 00 00 00"}));
    EXPECT_EQ(FrameTableLines(counts, kStart + 1s, {.columns = 48}).at(1),
              "123       2      2.0/s  00 00 00 00 00 00 00 02");
    EXPECT_EQ(FrameTableLines(counts, kStart + 1s, {.columns = 40}).at(3),
              "18DAF110  2.0/s  00 00 00 00 00 00 00 00");
    EXPECT_EQ(FrameTableLines(counts, kStart + 1s, {.columns = 39}).at(3),
              "18DAF110  2.0/s  0000000000000000");
}

TEST(FrameTables, NoLineIsLongerThanATerminalOfFortyColumns) {
    FrameCounts counts;
    for (int i = 0; i < 20000; ++i) {
        const auto time = kStart + i * std::chrono::microseconds(100);
        counts.Add({0x1FFFFFFF, true, Bytes(8, 0xFF)}, static_cast<std::uint64_t>(i) * 100, time);
    }
    for (const bool has_rates : {true, false}) {
        for (const std::string& line :
             FrameTableLines(counts, kStart + 2s, {.columns = 40, .has_rates = has_rates}))
            EXPECT_LE(line.size(), 40u) << line;
    }
}

TEST(FrameTables, LeaveOutIdentifiersBelowTheTerminalsLastLineAndSayHowMany) {
    FrameCounts counts;
    for (std::uint32_t id = 0; id < 100; ++id)
        counts.Add({id, false, {}}, 0, kStart);
    const Lines lines = FrameTableLines(counts, kStart, {.columns = 40, .lines = 24});
    ASSERT_EQ(lines.size(), 23u);
    EXPECT_EQ(lines[21].substr(0, 3), "014");
    EXPECT_EQ(lines[22], "79 more identifiers: see --filter");
    EXPECT_EQ(FrameTableLines(counts, kStart, {.has_rates = false}).size(), 101u);
}

TEST(FrameTables, BytesThatHaveChangedAreInReverseForASecond) {
    const FrameCounts counts = SomeFrames();
    const FrameTableLook look = {.columns = 40, .has_changes = true};
    EXPECT_EQ(FrameTableLines(counts, kStart + 1500ms, look).at(1),
              "123       1.3/s  00 00 00 00 00 00 00 \x1b[7m02\x1b[27m");
    EXPECT_EQ(FrameTableLines(counts, kStart + 1500ms, look).at(3),
              "18DAF110  1.3/s  00 00 00 00 00 00 00 00");
    EXPECT_EQ(FrameTableLines(counts, kStart + 2001ms, look).at(1).find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace dpdu
