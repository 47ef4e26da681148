#include <errno.h>
#include <gtest/gtest.h>

#include "platform/tick.h"
#include "unit/faults/system_call_fault.h"

namespace tarvik {
namespace {

TEST(Sleep, GoesOnAfterASignal) {
    const std::uint64_t before = PerformanceCounter();
    int sleeps = 0;
    {
        const test::SystemCallFault fault("clock_nanosleep", EINTR, 2);
        SleepMs(5);
        sleeps = fault.Calls();
    }
    EXPECT_EQ(sleeps, 3);
    EXPECT_GE((PerformanceCounter() - before) * 1000u / PerformanceFrequency(), 5u);
}

}  // namespace
}  // namespace tarvik
