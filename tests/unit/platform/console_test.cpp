#include "platform/console.h"

#include <gtest/gtest.h>

#include "paused_console.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

// In a child process: a process keeps the console that it attached.
const test::ChildBody kAttachTwice("attach-twice", [] {
    const ConsoleResult first = OsAttachConsole();
    const ConsoleResult second = OsAttachConsole();
    // Without a screen there may be no console, but then none at the second attempt either.
    return first == ConsoleResult::kNone            ? second == ConsoleResult::kNone ? 0 : 1
           : second == ConsoleResult::kAlreadyThere ? 0
                                                    : 2;
});

TEST(Console, SecondAttachFindsTheConsole) {
    EXPECT_EQ(test::RunChild("attach-twice").exit_code, 0);
}

TEST(StandardOutput, ConsoleMayWaitAndAFileDoesNot) {
    {
        const paused_console::PausedConsole console;
        ASSERT_TRUE(console.IsUsable());
        EXPECT_TRUE(OsStandardOutputMayWait());
    }
    const test::StdoutCapture file;
    OsPrint("text\n", 5);
    EXPECT_FALSE(OsStandardOutputMayWait());
}

}  // namespace
}  // namespace tarvik
