#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "paused_console.h"
#include "platform/event.h"
#include "platform/thread.h"
#include "support/console_output.h"
#include "support/debug_console.h"
#include "support/log.h"
#include "unit/faults/console_fault.h"
#include "unit/faults/heap_fault.h"
#include "unit/faults/thread_start_fault.h"
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

TEST(Console, LongTextIsPrintedWhole) {
    const std::string text(200'000, 'x');
    for (const bool by_thread : {false, true}) {
        if (by_thread) StartConsoleOutput();
        test::StdoutCapture console;
        ConsolePrint("%s\n", text.c_str());
        EXPECT_EQ(console.Text().find_first_not_of('x'), text.size());
        StopConsoleOutput();
    }
}

TEST(Console, LongTextIsCutWithoutMemory) {
    const std::string text(5000, 'x');
    test::StdoutCapture console;
    {
        const test::FailingHeap heap;
        ConsolePrint("%s\n", text.c_str());
    }
    EXPECT_NE(console.Text().find(std::string(1023, 'x')), std::string::npos);
    EXPECT_EQ(console.Text().find(std::string(1024, 'x')), std::string::npos);
}

TEST(Console, ThreadsPrintWholeLines) {
    StartConsoleOutput();
    test::StdoutCapture console;
    {
        std::vector<std::unique_ptr<test::Thread>> threads;
        for (int t = 0; t < 4; ++t) {
            threads.push_back(std::make_unique<test::Thread>([t] {
                for (int i = 0; i < 100; ++i)
                    ConsolePrint("<%s>\n", std::string(100, static_cast<char>('a' + t)).c_str());
            }));
        }
    }
    StopConsoleOutput();
    std::istringstream lines(console.Text());
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        std::erase(line, '\r');
        ASSERT_EQ(line, "<" + std::string(100, line.size() > 1 ? line[1] : '?') + ">");
    }
    EXPECT_EQ(count, 400);
}

TEST(Console, CallersPrintThemselvesIfTheThreadIsRefused) {
    paused_console::PausedConsole console;
    ASSERT_TRUE(console.IsUsable());
    console.Resume();
    {
        const test::ThreadStartFault fault("Tarvik PrinterThread", 11);
        StartConsoleOutput();
    }
    ConsolePrint("nobody else prints this\n");
    EXPECT_TRUE(test::Eventually(
        [&console] { return console.Shown().find("nobody else") != std::string::npos; }));
    StopConsoleOutput();
}

// Also across the end of the ring of 64 KiB.
TEST(Console, EachLineIsOneWrite) {
    for (const bool by_thread : {false, true}) {
        if (by_thread) StartConsoleOutput();
        test::WriteCounter output;
        ASSERT_TRUE(output.IsUsable());
        for (int i = 0; i < 90; ++i) {
            const std::string line(static_cast<std::size_t>(901 + i), 'x');
            ConsolePrint("%s\n", line.c_str());
            ASSERT_EQ(output.Next(), line + "\n");
            ASSERT_FALSE(output.HasNext());
        }
        if (by_thread) StopConsoleOutput();
    }
}

TEST(Console, TerminationOfAThreadThatPrintsLeavesTheConsoleUsable) {
    paused_console::PausedConsole console;
    ASSERT_TRUE(console.IsUsable());
    static std::atomic<bool> printing, end;
    printing = end = false;
    OsThread* printer = OsThreadStart(
        [](void*) {
            while (!end) {
                printing = true;
                ConsolePrint("while the console is paused\n");
            }
        },
        nullptr, "Tarvik test");
    ASSERT_TRUE(test::Eventually([] { return printing.load(); }));
    OsThreadTerminate(printer);
    console.Resume();
    OsThread* other = OsThreadStart([](void*) { ConsolePrint("later\n"); }, nullptr, "Tarvik test");
    EXPECT_TRUE(OsThreadJoin(other, 10'000));
    OsThreadClose(other);
    end = true;
    EXPECT_TRUE(OsThreadJoin(printer, 10'000));
    OsThreadClose(printer);
}

// Whoever asks first for the kind of standard output is held up there while this lives.
struct HeldQuestion {
    HeldQuestion() {
        leave = OsEventCreate(EventReset::kManual);
        is_held = false;
        test::OnOutputQuestion([] {
            if (!is_held.exchange(true)) OsEventWait(leave, -1);
        });
    }
    ~HeldQuestion() {
        test::OnOutputQuestion(nullptr);
        OsEventClose(leave);
    }

    inline static OsEvent* leave = nullptr;
    inline static std::atomic<bool> is_held{false};
};

TEST(Console, ThreadThatIsHeldUpByTheKindOfTheOutputHoldsNobodyElseUp) {
    test::StdoutCapture console;
    StartConsoleOutput();
    {
        const HeldQuestion question;
        test::Thread first([] { ConsolePrint("first\n"); });
        EXPECT_TRUE(test::Eventually([] { return HeldQuestion::is_held.load(); }));
        OsThread* other =
            OsThreadStart([](void*) { ConsolePrint("other\n"); }, nullptr, "Tarvik test");
        EXPECT_TRUE(OsThreadJoin(other, 10'000));
        OsEventSet(HeldQuestion::leave);
        first.Join();
        OsThreadJoin(other, -1);
        OsThreadClose(other);
    }
    StopConsoleOutput();
    EXPECT_LT(console.Text().find("other"), console.Text().find("first"));
}

TEST(Console, PauseHoldsNobodyUp) {
    paused_console::PausedConsole console;
    ASSERT_TRUE(console.IsUsable());
    StartConsoleOutput();
    ConsolePrint("first\n");
    const std::string filling(1000, 'x');
    for (int i = 0; i < 300; ++i)
        ConsolePrint("%s\n", filling.c_str());
    StopConsoleOutput();
    EXPECT_TRUE(ConsoleIsPaused());
    console.Resume();
    StartConsoleOutput();
    // What waits is printed first; then there is room again.
    EXPECT_TRUE(test::Eventually([&console] {
        ConsolePrint("last\n");
        return console.Shown().find("last") != std::string::npos;
    }));
    StopConsoleOutput();
    EXPECT_FALSE(ConsoleIsPaused());
    const std::string shown = console.Shown();
    EXPECT_LT(shown.find("first"), shown.find('x'));
    EXPECT_GT(std::count(shown.begin(), shown.end(), 'x'), 40'000);
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
