#include "platform/tick.h"

#include <gtest/gtest.h>

#include "unit/test_support.h"

namespace tarvik {
namespace {

TEST(Tick, NeverGoesBack) {
    std::uint64_t last = TickMs();
    for (int i = 0; i < 10'000; ++i) {
        const std::uint64_t now = TickMs();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(Tick, SleepLastsAtLeastAsLongAsAsked) {
    const std::uint64_t before = PerformanceCounter();
    SleepMs(30);
    const std::uint64_t passed = PerformanceCounter() - before;
    EXPECT_GE(passed * 1000u / PerformanceFrequency(), 29u);
}

TEST(Tick, AdvancesWithTheHighResolutionCounter) {
    const std::uint64_t before = TickMs();
    const std::uint64_t counter = PerformanceCounter();
    while ((PerformanceCounter() - counter) * 1000u / PerformanceFrequency() < 20)
        SleepMs(1);
    EXPECT_GE(TickMs() - before, 19u);
}

TEST(Tick, SourceCanBeReplacedAndRestored) {
    const TickSource system = SetTickSource([] { return std::uint64_t{42}; });
    EXPECT_EQ(TickMs(), 42u);
    SetTickSource(system);
    EXPECT_NE(TickMs(), 42u);
}

TEST(Tick, TimestampIsTheTickInMicrosecondsCutTo32Bits) {
    test::FakeTick tick(5'000'000);
    EXPECT_EQ(TimestampUs(), static_cast<std::uint32_t>(5'000'000'000u));
    EXPECT_EQ(TimestampUs(), 705'032'704u);
}

}  // namespace
}  // namespace tarvik
