#include "support/log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include "platform/thread.h"
#include "unit/faults/debug_output_fault.h"
#include "unit/faults/files_fault.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

namespace fs = std::filesystem;
using test::ChildBody;
using test::DebugOutputCapture;
using test::LogCapture;
using test::RunChild;
using test::TestFolders;

fs::path LogIn(const fs::path& folder) {
    return folder / ("dpdu_debug_" + std::to_string(OsProcessId()) + ".log");
}

#define CHECK_IN_CHILD(condition)                          \
    do {                                                   \
        if (!(condition)) {                                \
            std::printf("line %d: " #condition, __LINE__); \
            return 1;                                      \
        }                                                  \
    } while (false)

void ExpectChildSucceeds(const char* name) {
    const test::ChildResult result = RunChild(name);
    EXPECT_EQ(result.exit_code, 0) << result.output;
}

TEST(Log, LineIsTimePrefixMessageAndLineFeed) {
    const LogCapture log;
    Log(7, "[%s] Called (hMod=%u)", "Test", 3u);
    std::string shape = log.Text();
    std::replace_if(
        shape.begin(), shape.begin() + 22, [](char c) { return c >= '0' && c <= '9'; }, 'd');
    EXPECT_EQ(shape, "[dddd-dd-dd dd:dd:dd] [Test] Called (hMod=3)\n");
}

TEST(Log, PrefixIsTheLocalTime) {
    const LogCapture log;
    char expected[2][64];
    // The second may change between the two.
    for (char(&text)[64] : expected) {
        const CalendarTime now = OsLocalTime();
        FormatText(text, sizeof text, "[%04d-%02d-%02d %02d:%02d:%02d] now\n", now.year, now.month,
                   now.day, now.hour, now.minute, now.second);
        if (&text == &expected[0]) Log(7, "now");
    }
    EXPECT_TRUE(log.Text() == expected[0] || log.Text() == expected[1]) << log.Text();
}

TEST(Log, PrefixFollowsTheClock) {
    const LogCapture log;
    Log(7, "early");
    const std::int64_t second = OsCalendarSecond();
    EXPECT_TRUE(test::Eventually([&] { return OsCalendarSecond() > second; }));
    Log(7, "late");
    const std::string text = log.Text();
    EXPECT_NE(text.substr(0, 22), text.substr(text.find('\n') + 1, 22));
}

TEST(Log, LevelsBelowEightAreWrittenAndTheOthersNever) {
    const LogCapture log;
    for (int level = -1; level <= 10; ++level)
        Log(level, "level %d", level);
    EXPECT_EQ(log.Lines().size(), 9u);
    EXPECT_TRUE(log.Has("level -1"));
    EXPECT_TRUE(log.Has("level 7"));
    EXPECT_FALSE(log.Mentions("level 8"));
    EXPECT_FALSE(log.Mentions("level 9"));
    EXPECT_TRUE(LogEnabled(7));
    EXPECT_FALSE(LogEnabled(8));
}

TEST(Log, LongLineIsWrittenWhole) {
    for (const std::size_t length : {1000u, 1001u, 1002u, 1003u, 5000u, 200'000u}) {
        const LogCapture log;
        const std::string text(length, 'x');
        Log(7, "%s", text.c_str());
        EXPECT_TRUE(log.Has(text)) << length;
    }
}

TEST(Log, LongLineIsDroppedWhenMemoryIsOut) {
    const LogCapture log;
    const std::string text(5000, 'x');
    {
        const test::FailingHeap heap;
        Log(7, "%s", text.c_str());
    }
    EXPECT_EQ(log.Lines(), std::vector<std::string>{"[CRITICAL ERROR] malloc() returned NULL"});
}

TEST(Log, FormatsTheSameOnBothSystems) {
    const LogCapture log;
    const char* volatile nothing = nullptr;
    Log(7, "%zu %llu %04X %lld %.*s %5.1f", std::size_t{7}, 18'446'744'073'709'551'615ull, 0x8062u,
        -1ll, 2, "abc", 1.25);
    Log(7, "'%s'", nothing);
    EXPECT_TRUE(log.Has("7 18446744073709551615 8062 -1 ab   1.2"));
    EXPECT_TRUE(log.Has("'(null)'"));
}

TEST(Log, KeepsTheLastError) {
    const LogCapture log;
    OsSetLastError(7);
    Log(7, "%s", std::string(3000, 'x').c_str());
    EXPECT_EQ(OsLastError(), 7);
}

TEST(Log, LinesOfSeveralThreadsStayWhole) {
    const LogCapture log;
    {
        std::vector<std::unique_ptr<test::Thread>> threads;
        for (int t = 0; t < 4; ++t) {
            threads.push_back(std::make_unique<test::Thread>([t] {
                for (int i = 0; i < 500; ++i) {
                    Log(7, "thread %d line %d %s", t, i, std::string(200, 'a').c_str());
                }
            }));
        }
    }
    const std::vector<std::string> lines = log.Lines();
    EXPECT_EQ(lines.size(), 2'000u);
    EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), 2'000u);
    for (const std::string& line : lines)
        ASSERT_EQ(line.substr(line.size() - 200).find_first_not_of('a'), std::string::npos);
}

const ChildBody kOpenLog("open-log", [] {
    const TestFolders folders;
    const DebugOutputCapture debug;
    Log(7, "before it is open");
    CHECK_IN_CHILD(!LogEnabled(0));
    test::WriteFile(LogIn(folders.Temp()), "left over\n");
    OpenDebugLog(true);
    const fs::path path = LogIn(folders.Temp());
    CHECK_IN_CHILD(debug.Text() == "[DebugLog] Writing to " + path.string() + "\n");
    Log(7, "first");
    // A second PDUConstruct.
    OpenDebugLog(true);
    CHECK_IN_CHILD(debug.Text() == "[DebugLog] Writing to " + path.string() + "\n");
    Log(7, "second");
    const std::string text = test::ReadFile(path);
    CHECK_IN_CHILD(text.find("left over\n") == 0);
    CHECK_IN_CHILD(text.find("before") == std::string::npos);
    CHECK_IN_CHILD(text.find("first\n") < text.find("second\n"));
    CHECK_IN_CHILD(text.find("second\n") != std::string::npos);
    return 0;
});

TEST(DebugLog, SecondOpeningAppendsToTheSameFile) { ExpectChildSucceeds("open-log"); }

const ChildBody kDisabledLog("disabled-log", [] {
    const TestFolders folders;
    const DebugOutputCapture debug;
    OpenDebugLog(false);
    for (int level = 0; level <= 8; ++level)
        Log(level, "nothing");
    CHECK_IN_CHILD(debug.Text() == "[DebugLog] Disabled via config enableDebugLogFile=false\n");
    CHECK_IN_CHILD(!LogEnabled(0));
    CHECK_IN_CHILD(fs::is_empty(folders.Temp()));
    return 0;
});

TEST(DebugLog, DisabledLogCreatesNoFileAndWritesNothing) { ExpectChildSucceeds("disabled-log"); }

const ChildBody kUnopenableLog("unopenable-log", [] {
    const TestFolders folders;
    const DebugOutputCapture debug;
    const std::string missing = (folders.Temp() / "no" / "folder" / "").string();
    test::ReportTempPath(missing, static_cast<std::uint32_t>(missing.size()));
    OpenDebugLog(true);
    Log(0, "nothing");
    CHECK_IN_CHILD(debug.Text() == "[DebugLog] Failed to open debug log file\n");
    CHECK_IN_CHILD(!LogEnabled(0));
    return 0;
});

TEST(DebugLog, UnopenableFileIsReportedOnTheDebuggerOutputOnly) {
    ExpectChildSucceeds("unopenable-log");
}

const ChildBody kForeignLog("foreign-log", [] {
    const TestFolders folders;
    const DebugOutputCapture debug;
    test::WriteFile(folders.Temp() / "target", "somebody's\n");
    fs::create_hard_link(folders.Temp() / "target", LogIn(folders.Temp()));
    OpenDebugLog(true);
    Log(0, "nothing");
    CHECK_IN_CHILD(debug.Text() == "[DebugLog] Failed to open debug log file\n");
    CHECK_IN_CHILD(!LogEnabled(0));
    CHECK_IN_CHILD(test::ReadFile(folders.Temp() / "target") == "somebody's\n");
    return 0;
});

TEST(DebugLog, FileThatIsAlsoAnotherIsNotTaken) { ExpectChildSucceeds("foreign-log"); }

const ChildBody kLogOfOneProcess("log-of-one-process", [] {
    OpenDebugLog(true);
    Log(7, "one of two");
    char folder[kMaxPath];
    OsTempPath(folder, sizeof folder);
    std::printf("%s", LogIn(folder).string().c_str());
    return 0;
});

TEST(DebugLog, TwoProcessesWriteTwoFiles) {
    const std::string first = RunChild("log-of-one-process").output;
    const std::string second = RunChild("log-of-one-process").output;
    EXPECT_NE(first, second);
    for (const std::string& path : {first, second}) {
        const std::string text = test::ReadFile(path);
        EXPECT_EQ(text.find("one of two\n"), text.size() - 11) << path;
        std::remove(path.c_str());
    }
}

TEST(FormatText, ReturnsTheNumberOfCharactersOrMinusOneWhenItDoesNotFit) {
    char buffer[4];
    EXPECT_EQ(FormatText(buffer, sizeof buffer, "%d", 123), 3);
    EXPECT_STREQ(buffer, "123");
    EXPECT_EQ(FormatText(buffer, sizeof buffer, "%d", 1234), -1);
    EXPECT_STREQ(buffer, "123");
    EXPECT_EQ(FormatText(buffer, sizeof buffer, "%s", ""), 0);
}

TEST(HexText, SpacedPutsABlankAfterEveryByte) {
    const unsigned char bytes[] = {0x62, 0xF1, 0x90, 0x0A};
    EXPECT_STREQ(HexText(bytes, sizeof bytes).c_str(), "62 F1 90 0A ");
    EXPECT_STREQ(HexText(bytes, 0).c_str(), "");
    EXPECT_STREQ(HexText(nullptr, 0).c_str(), "");
}

TEST(HexText, PackedHasNoBlanks) {
    const unsigned char bytes[] = {0x62, 0xF1, 0x90};
    EXPECT_STREQ(HexText(bytes, sizeof bytes, HexText::Style::kPacked).c_str(), "62F190");
}

TEST(HexText, LongDataIsWholeAndShortDataNeedsNoHeap) {
    const std::vector<unsigned char> bytes(4096, 0xC3);
    for (const std::size_t size : {254u, 255u, 256u, 257u, 4096u}) {
        std::string expected;
        for (std::size_t i = 0; i < size; ++i)
            expected += "C3 ";
        EXPECT_EQ(HexText(bytes.data(), size).c_str(), expected);
    }
    std::size_t length = 0;
    {
        const test::FailingHeap heap;
        length = std::strlen(HexText(bytes.data(), 200).c_str());
    }
    EXPECT_EQ(length, 600u);
}

TEST(PrintableText, ControlCharactersBecomePoints) {
    const std::string text("a\0\x01\t\r\n\x1B[0m\x1F \x7E\x7F\x80\xFF", 16);
    EXPECT_STREQ(PrintableText(text.data(), text.size()).c_str(), "a......[0m. \x7E.\x80\xFF");
    EXPECT_STREQ(PrintableText("").c_str(), "");
    EXPECT_STREQ(PrintableText("line\n").c_str(), "line.");
}

TEST(PrintableText, LongTextIsWholeAndIsCutWithoutMemory) {
    const std::string text(5000, '\n');
    EXPECT_EQ(PrintableText(text.c_str()).c_str(), std::string(5000, '.'));
    std::size_t length = 0;
    {
        const test::FailingHeap heap;
        length = std::strlen(PrintableText(text.c_str()).c_str());
    }
    EXPECT_EQ(length, 63u);
}

TEST(HexText, IsCutWhenMemoryIsOut) {
    const std::vector<unsigned char> bytes(4096, 0xC3);
    std::size_t length = 0;
    {
        const test::FailingHeap heap;
        length = std::strlen(HexText(bytes.data(), bytes.size()).c_str());
    }
    EXPECT_EQ(length, 255u * 3u);
}

}  // namespace
}  // namespace tarvik
