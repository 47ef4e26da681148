// Unit tests of frames, lists of control units and live tables.

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "console/failure.h"
#include "console/output.h"
#include "raw/can_frame.h"
#include "raw/frame_counts.h"
#include "temporary_file.h"
#include "uds/unit_list.h"

namespace dpdu {
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
    TimestampExtender time;
    EXPECT_EQ(time.SinceFirst(0xFFFFFFF0), 0u);
    EXPECT_EQ(time.SinceFirst(0x10), 0x20u);
    EXPECT_EQ(time.SinceFirst(0x0F), 0x20u + std::uint64_t{0xFFFFFFFF});
}

TEST(FrameTotals, PeriodIsTheMeanOfAllIntervals) {
    FrameCounts counts;
    for (const std::uint64_t time_us : {0u, 10'000u, 30'000u})
        counts.Add({0x123, false, {0x01}}, time_us);
    ASSERT_EQ(counts.Rows().size(), 2u);
    EXPECT_EQ(counts.Rows()[1], (Row{"123", "3", "15.0 ms", "01"}));
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

TEST(LiveTables, NextTableOverwritesTheLast) {
    const File file(std::tmpfile());
    ASSERT_TRUE(file);
    Output output(file.get(), false, true);
    output.LiveTable({{"ID", "COUNT"}, {"123", "1"}});
    output.LiveTable({{"ID", "COUNT"}, {"123", "2"}});
    output.Flush();
    EXPECT_EQ(Content(file.get()),
              "ID   COUNT\x1b[K\n123  1\x1b[K\n\x1b[2A"
              "ID   COUNT\x1b[K\n123  2\x1b[K\n");
}

}  // namespace
}  // namespace dpdu
