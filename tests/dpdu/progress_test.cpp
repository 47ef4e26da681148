#include "console/progress.h"

#include <gtest/gtest.h>

#include <algorithm>
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

TEST(ProgressBars, OnATerminalTheLineShowsShareAndTimeLeftAndIsErased) {
    const File file(std::tmpfile());
    ASSERT_TRUE(file);
    {
        ProgressBar bar("scanning", 4, {file.get(), true, std::chrono::seconds(1)});
        const auto start = ProgressBar::Clock::now();
        bar.Advance("700", start);  // earlier than the delay
        EXPECT_EQ(std::ftell(file.get()), 0);
        bar.Advance("701", start + std::chrono::seconds(10));
        bar.Advance("702", start + std::chrono::seconds(10));  // too soon after the last
    }
    const std::string text = Content(file.get());
    const std::string line = "\rdpdu: scanning [##########..........] 50 %, 10 s left, 701";
    EXPECT_EQ(text, line + "\r" + std::string(line.size() - 1, ' ') + "\r");
}

TEST(ProgressBars, WithoutATerminalAPlainLineIsPrintedNowAndThen) {
    const File file(std::tmpfile());
    ASSERT_TRUE(file);
    {
        ProgressBar bar("scanning", 100, {file.get(), false, std::chrono::seconds(1)});
        const auto start = ProgressBar::Clock::now();
        for (int second = 0; second < 15; ++second)
            bar.Advance("700", start + std::chrono::seconds(second));
    }
    const std::string text = Content(file.get());
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
    EXPECT_TRUE(text.starts_with("dpdu: scanning, ")) << text;
    EXPECT_TRUE(text.ends_with(" s left...\n")) << text;
}

}  // namespace
}  // namespace dpdu
