#include "platform/console.h"

#include <gtest/gtest.h>

#include "unit/test_system.h"

namespace tarvik {
namespace {

// In a process of its own: the console stays with the process that got it.
const test::ChildBody kAttachTwice("attach-twice", [] {
    const ConsoleResult first = OsAttachConsole();
    const ConsoleResult second = OsAttachConsole();
    // Without a screen there may be none to be had, but then not at the second attempt either.
    return first == ConsoleResult::kNone            ? second == ConsoleResult::kNone ? 0 : 1
           : second == ConsoleResult::kAlreadyThere ? 0
                                                    : 2;
});

TEST(Console, SecondAttemptFindsItAlreadyThere) {
    EXPECT_EQ(test::RunChild("attach-twice").exit_code, 0);
}

}  // namespace
}  // namespace tarvik
