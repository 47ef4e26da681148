#include "support/message.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/window_station.h"
#include "support/memory.h"
#include "unit/faults/debug_output_fault.h"
#include "unit/test_support.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

// From now on this process is where a service is: nobody sees its windows.
void MoveOutOfSight() {
    const HWINSTA station = ::CreateWindowStationW(L"TarvikTest", 0, GENERIC_ALL, nullptr);
    ::SetProcessWindowStation(station);
}

const test::ChildBody kWarnUnseen("warn-unseen", [] {
    MoveOutOfSight();
    const test::LogCapture log;
    const test::DebugOutputCapture debugger;
    ShowWarning("First line\nsecond line", "Caption");
    const std::string line = "[MessageBox] Caption: First line second line";
    if (!log.Has(line)) return 1;
    return debugger.Text() == line + "\n" ? 0 : 2;
});

TEST(Message, GoesToLogAndDebuggerIfNobodySeesIt) {
    EXPECT_EQ(test::RunChild("warn-unseen").exit_code, 0);
}

const test::ChildBody kCutUnseen("cut-unseen", [] {
    MoveOutOfSight();
    const test::LogCapture log;
    ShowError(std::string(1023, 'x').c_str(), "Caption");
    return log.Mentions("[MessageBox] Caption: " + std::string(900, 'x')) ? 0 : 1;
});

TEST(Message, LongTextThatNobodySeesIsCut) { EXPECT_EQ(test::RunChild("cut-unseen").exit_code, 0); }

const test::ChildBody kCorruptUnseen("corrupt-unseen", [] {
    MoveOutOfSight();
    std::puts(test::DebugLogPath().string().c_str());
    std::fflush(stdout);
    void* block = AllocateMem(8);
    std::memset(block, 1, 100);
    FreeMem(block);
    return 0;
});

TEST(Message, CorruptedProcessEndsWhereNobodySeesItsBox) {
    const test::ChildResult child = test::RunChild("corrupt-unseen");
    EXPECT_EQ(child.exit_code, 1);
    const std::string path = child.output.substr(0, child.output.find('\n'));
    std::string log;
    {
        std::ifstream file(path, std::ios::binary);
        log.assign(std::istreambuf_iterator<char>(file), {});
    }
    EXPECT_NE(
        log.find("[MessageBox] Critical Error: Tarvik D-PDU DLL - Memory corruption detected! "
                 "Exiting."),
        std::string::npos)
        << log;
    std::remove(path.c_str());
}

TEST(Message, WindowsOfThisProcessAreSeen) { EXPECT_TRUE(OsWindowsAreSeen()); }

}  // namespace
}  // namespace tarvik
