#include "platform/process.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "path_text.h"
#include "platform/message_box.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

using test::ChildBody;
using test::RunChild;
using test::SetVariable;

constexpr char kVariable[] = "TARVIK_PLATFORM_TEST";

TEST(Environment, ValueIsCopiedWithItsNul) {
    SetVariable(kVariable, "yes");
    char value[8];
    std::memset(value, '#', sizeof value);
    EXPECT_TRUE(OsEnvironment(kVariable, value, sizeof value));
    EXPECT_STREQ(value, "yes");
    EXPECT_EQ(value[4], '#');
    SetVariable(kVariable, nullptr);
}

TEST(Environment, ValueBeyondTheCodePageIsUtf8) {
    SetVariable(kVariable, kForeignName);
    char value[sizeof kForeignName];
    EXPECT_TRUE(OsEnvironment(kVariable, value, sizeof value));
    EXPECT_STREQ(value, kForeignName);
    EXPECT_FALSE(OsEnvironment(kVariable, value, sizeof value - 1));
    SetVariable(kVariable, nullptr);
}

TEST(Environment, EmptyValueCountsAsSet) {
    SetVariable(kVariable, "");
    char value[4] = "old";
    EXPECT_TRUE(OsEnvironment(kVariable, value, sizeof value));
    EXPECT_STREQ(value, "");
    SetVariable(kVariable, nullptr);
}

TEST(Environment, ValueThatJustFitsIsCopied) {
    SetVariable(kVariable, "123");
    char value[4];
    EXPECT_TRUE(OsEnvironment(kVariable, value, sizeof value));
    EXPECT_STREQ(value, "123");
    SetVariable(kVariable, nullptr);
}

TEST(Environment, ValueOneCharacterTooLongIsRefusedAndNothingWritten) {
    SetVariable(kVariable, "1234");
    char value[4] = {'#', '#', '#', '#'};
    EXPECT_FALSE(OsEnvironment(kVariable, value, sizeof value));
    EXPECT_EQ(std::string(value, 4), "####");
    SetVariable(kVariable, nullptr);
}

TEST(Environment, VariableThatIsNotSetIsRefused) {
    SetVariable(kVariable, nullptr);
    char value[4];
    EXPECT_FALSE(OsEnvironment(kVariable, value, sizeof value));
}

const ChildBody kPrintId("print-id", [] {
    std::printf("%lu", static_cast<unsigned long>(OsProcessId()));
    return 0;
});

TEST(Process, IdIsConstantAndDiffersBetweenProcesses) {
    EXPECT_EQ(OsProcessId(), OsProcessId());
    const std::string other = RunChild("print-id").output;
    EXPECT_NE(other, "");
    EXPECT_NE(other, std::to_string(OsProcessId()));
}

const ChildBody kExitAtOnce("exit-at-once", [] {
    std::atexit([] { std::puts("an exit handler ran"); });
    OsExitProcess(3);
    return 0;
});

TEST(Process, ExitEndsAtOnceWithTheCodeAndRunsNoExitHandlers) {
    const test::ChildResult result = RunChild("exit-at-once");
    EXPECT_EQ(result.exit_code, 3);
    EXPECT_EQ(result.output, "");
}

TEST(Process, NoDebuggerIsPresent) { EXPECT_FALSE(OsDebuggerPresent()); }

const ChildBody kDebugOutput("debug-output", [] {
    OsDebugOutput("100 %s %n\n");
    return 0;
});

TEST(Process, DebugOutputIsNotAFormat) { EXPECT_EQ(RunChild("debug-output").exit_code, 0); }

TEST(Process, LocalTimeIsACalendarDate) {
    const CalendarTime now = OsLocalTime();
    EXPECT_GE(now.year, 2024);
    EXPECT_TRUE(now.month >= 1 && now.month <= 12);
    EXPECT_TRUE(now.day >= 1 && now.day <= 31);
    EXPECT_TRUE(now.hour >= 0 && now.hour <= 23);
    EXPECT_TRUE(now.minute >= 0 && now.minute <= 59);
    EXPECT_TRUE(now.second >= 0 && now.second <= 60);
}

TEST(Process, CalendarSecondChangesWhenTheLocalSecondDoes) {
    // The calendar second is the same before and after.
    for (;;) {
        const std::int64_t before = OsCalendarSecond();
        const CalendarTime first = OsLocalTime();
        const CalendarTime second = OsLocalTime();
        if (OsCalendarSecond() != before) continue;
        EXPECT_EQ(first.second, second.second);
        EXPECT_EQ(first.second, static_cast<int>(before % 60));
        return;
    }
}

const ChildBody kMessageBox("message-box", [] {
    test::CloseMessageBoxOf("Test Caption",
                            [] { OsMessageBox("Test text", "Test Caption", BoxIcon::kError); });
    return 0;
});

const ChildBody kWarningBox("warning-box", [] {
    test::CloseMessageBoxOf("Test Caption",
                            [] { OsMessageBox("Test text", "Test Caption", BoxIcon::kWarning); });
    return 0;
});

TEST(Process, WarningBoxReturnsWhenItIsClosed) {
    const test::ChildResult result = RunChild("warning-box");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.output, test::PrintedMessageBox("Test text", "Test Caption"));
}

TEST(Process, MessageBoxReturnsWhenItIsClosed) {
    const test::ChildResult result = RunChild("message-box");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.output, test::PrintedMessageBox("Test text", "Test Caption"));
}

}  // namespace
}  // namespace tarvik
