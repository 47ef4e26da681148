#include "console/progress.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "temporary_file.h"

namespace dpdu {
namespace {

// The stream's length grows when the progress thread writes to it.
bool WaitUntilWritten(std::FILE* file) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
        if (std::ftell(file) > 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

TEST(ProgressLine, NothingIsShownBeforeTheDelay) {
    const File file(std::tmpfile());
    ASSERT_TRUE(file);
    { const Progress progress("waiting", {file.get(), true, std::chrono::hours(1)}); }
    EXPECT_EQ(Content(file.get()), "");
}

TEST(ProgressLine, WithoutATerminalAPlainLineIsPrintedOnce) {
    const File file(std::tmpfile());
    ASSERT_TRUE(file);
    {
        const Progress progress("waiting", {file.get(), false, std::chrono::milliseconds(0)});
        EXPECT_TRUE(WaitUntilWritten(file.get()));
    }
    EXPECT_EQ(Content(file.get()), "dpdu: waiting...\n");
}

TEST(ProgressLine, OnATerminalTheLineIsErasedAtTheEnd) {
    const File file(std::tmpfile());
    ASSERT_TRUE(file);
    {
        const Progress progress("waiting", {file.get(), true, std::chrono::milliseconds(0)});
        EXPECT_TRUE(WaitUntilWritten(file.get()));
    }
    const std::string text = Content(file.get());
    EXPECT_EQ(text.rfind("\rdpdu: waiting... 0 s", 0), 0u) << text;
    EXPECT_EQ(text.substr(text.size() - 6), "     \r") << text;
}

}  // namespace
}  // namespace dpdu
