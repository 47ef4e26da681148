#include <gtest/gtest.h>

#include "support/debug_console.h"
#include "support/log.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

constexpr char kBanner[] =
    "-----------------------\n"
    " Debug console enabled\n"
    "-----------------------\n";

TEST(Console, PrintsToStandardOutputAndNotToTheLog) {
    const test::LogCapture log;
    test::StdoutCapture console;
    ConsolePrint("[Cloud] ---%s---\r\n", "CONNECTING");
    ConsolePrint("100%%\n");
    EXPECT_NE(console.Text().find("[Cloud] ---CONNECTING---"), std::string::npos);
    EXPECT_NE(console.Text().find("100%\n"), std::string::npos);
    EXPECT_EQ(log.Text(), "");
}

// On systems where standard output is the console.
const test::ChildBody kOpenConsoleTwice("open-console-twice", [] {
    OpenDebugConsole();
    OpenDebugConsole();
    return 0;
});

TEST(Console, BannerIsPrintedOnce) {
    const test::ChildResult result = test::RunChild("open-console-twice");
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.output, test::PrintedOnConsole(kBanner));
}

}  // namespace
}  // namespace tarvik
