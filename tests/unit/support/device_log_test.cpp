#include "support/device_log.h"

#include <gtest/gtest.h>

#include <string>

#include "support/memory.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"

namespace tarvik {
namespace {

using test::StdoutCapture;

void Feed(const std::string& text) { ProcessDeviceLogPacket(text.data(), text.size()); }

// Ends an unfinished line in the buffer.
class DeviceLog : public testing::Test {
protected:
    ~DeviceLog() override {
        StdoutCapture ignored;
        Feed("\n");
    }
};

std::string Printed(const std::string& text) {
    StdoutCapture console;
    Feed(text);
    std::string printed = console.Text();
    std::erase(printed, '\r');  // of a text stream
    return printed;
}

TEST_F(DeviceLog, LineIsPrintedWhenItsLineFeedArrivesAndTheRestIsKept) {
    EXPECT_EQ(Printed("ab"), "");
    EXPECT_EQ(Printed("c\nd"), "[LOG] abc\n");
    EXPECT_EQ(Printed("e\n"), "[LOG] de\n");
}

TEST_F(DeviceLog, SeveralLinesOfOnePacketArePrintedInOrder) {
    EXPECT_EQ(Printed("one\ntwo\n\nthree\nrest"), "[LOG] one\n[LOG] two\n[LOG] \n[LOG] three\n");
    EXPECT_EQ(Printed("\n"), "[LOG] rest\n");
}

TEST_F(DeviceLog, OnlyBytesBeforeANulCount) {
    EXPECT_EQ(Printed(std::string("seen\0lost\n", 10)), "");
    EXPECT_EQ(Printed("!\n"), "[LOG] seen!\n");
}

TEST_F(DeviceLog, EmptyTextChangesNothing) {
    EXPECT_EQ(Printed("kept"), "");
    EXPECT_EQ(Printed(""), "");
    ProcessDeviceLogPacket("unread", 0);
    EXPECT_EQ(Printed("\n"), "[LOG] kept\n");
}

TEST_F(DeviceLog, PercentSignsAreText) { EXPECT_EQ(Printed("%s %n\n"), "[LOG] %s %n\n"); }

TEST_F(DeviceLog, OneBlockHoldsTheUnfinishedLine) {
    EXPECT_EQ(Printed("x\n"), "[LOG] x\n");
    const MemoryUse before = LiveMemory();
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(Printed("y"), "");
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(Printed("\n"), "[LOG] " + std::string(100, 'y') + "\n");
}

TEST_F(DeviceLog, LineOfMoreThan64KiBIsBroken) {
    constexpr std::size_t kLongest = 65536;
    EXPECT_EQ(Printed(std::string(kLongest, 'a')), "");
    EXPECT_EQ(Printed("\n"), "[LOG] " + std::string(kLongest, 'a') + "\n");
    EXPECT_EQ(Printed(std::string(kLongest + 1, 'b') + "\nnext\n"),
              "[LOG] " + std::string(kLongest, 'b') + "\n[LOG] b\n[LOG] next\n");
}

TEST_F(DeviceLog, TextWithoutLineFeedsIsNotKept) {
    const std::string text(4088, 'z');
    const std::uint64_t most = LiveMemory().bytes + 65536 + text.size() + 1;
    std::size_t printed = 0;
    for (int i = 0; i < 100; ++i) {
        printed += Printed(text).size();
        EXPECT_LE(LiveMemory().bytes, most);
    }
    EXPECT_GE(printed, 100 * text.size() - 65536);
}

TEST_F(DeviceLog, FailedGrowthDiscardsTheBuffer) {
    EXPECT_EQ(Printed("lost"), "");
    StdoutCapture console;
    {
        const test::FailingHeap heap;
        ProcessDeviceLogPacket("lost\n", 5);
    }
    EXPECT_NE(console.Text().find("Failed to reallocate memory for log buffer"), std::string::npos);
    EXPECT_EQ(Printed("new\n"), "[LOG] new\n");
}

TEST_F(DeviceLog, FailedFirstAllocationDropsThePacket) {
    {
        StdoutCapture discarded;
        const test::FailingHeap heap;
        ProcessDeviceLogPacket("x", 1);
    }
    StdoutCapture console;
    {
        const test::FailingHeap heap;
        ProcessDeviceLogPacket("lost\n", 5);
    }
    EXPECT_NE(console.Text().find("Failed to allocate memory for log buffer"), std::string::npos);
    EXPECT_EQ(Printed("new\n"), "[LOG] new\n");
}

TEST_F(DeviceLog, PortsThatReceiveAtOnceDoNotTearLines) {
    StdoutCapture console;
    {
        const auto feed = [] {
            for (int i = 0; i < 300; ++i)
                Feed("whole line\n");
        };
        test::Thread first(feed);
        test::Thread second(feed);
    }
    std::string expected;
    for (int i = 0; i < 600; ++i)
        expected += "[LOG] whole line\n";
    std::string printed = console.Text();
    std::erase(printed, '\r');
    EXPECT_EQ(printed, expected);
}

}  // namespace
}  // namespace tarvik
