#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include "platform/console.h"
#include "unit/faults/system_call_fault.h"

namespace tarvik {
namespace {

// Whether printing may wait while standard output is this file, which it closes.
bool MayWaitOn(int descriptor) {
    std::fflush(stdout);
    const int before = ::dup(STDOUT_FILENO);
    ::dup2(descriptor, STDOUT_FILENO);
    ::close(descriptor);
    const bool may_wait = OsStandardOutputMayWait();
    ::dup2(before, STDOUT_FILENO);
    ::close(before);
    return may_wait;
}

TEST(StandardOutputOfPosix, TerminalMayWait) {
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(::grantpt(terminal), 0);
    ASSERT_EQ(::unlockpt(terminal), 0);
    const int user_side = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
    ASSERT_GE(user_side, 0);
    EXPECT_TRUE(MayWaitOn(user_side));
    ::close(terminal);
}

TEST(StandardOutputOfPosix, NullDeviceDoesNotWait) {
    const int null_device = ::open("/dev/null", O_WRONLY);
    ASSERT_GE(null_device, 0);
    EXPECT_FALSE(MayWaitOn(null_device));
}

TEST(StandardOutputOfPosix, ClosedOneDoesNotWait) {
    bool may_wait = true;
    {
        const test::SystemCallFault fault("fstat", EBADF);
        may_wait = OsStandardOutputMayWait();
    }
    EXPECT_FALSE(may_wait);
}

// A process has its standard output from the start, and the library does not replace it.
TEST(StandardOutputOfPosix, CreatingAConsoleLeavesItAsItIs) {
    const int null_device = ::open("/dev/null", O_WRONLY);
    ASSERT_GE(null_device, 0);
    std::fflush(stdout);
    const int before = ::dup(STDOUT_FILENO);
    ::dup2(null_device, STDOUT_FILENO);
    OsCreateConsole();
    const bool may_wait = OsStandardOutputMayWait();
    ::dup2(before, STDOUT_FILENO);
    ::close(before);
    ::close(null_device);
    EXPECT_FALSE(may_wait);
}

}  // namespace
}  // namespace tarvik
