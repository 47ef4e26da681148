#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <syslog.h>

#include <cstdio>
#include <string>

#include "platform/process.h"
#include "platform/random.h"
#include "unit/faults/system_call_fault.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

using test::RunChild;
using test::SystemCallFault;

// It ends at once: a leak check at the end does not work under a debugger.
const test::ChildBody kTraced("traced", [] {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) OsExitProcess(2);
    OsExitProcess(OsDebuggerPresent() ? 0 : 1);
    return 3;
});

TEST(Debugger, IsPresentIfItTracesTheProcess) { EXPECT_EQ(RunChild("traced").exit_code, 0); }

TEST(Debugger, CountsAsAbsentIfTheSystemDoesNotSay) {
    bool present = true;
    {
        const SystemCallFault fault("open", EMFILE);
        present = OsDebuggerPresent();
    }
    EXPECT_FALSE(present);
}

TEST(Debugger, GetsATrapFromABreak) {
    static volatile sig_atomic_t traps;
    traps = 0;
    struct sigaction count {};
    struct sigaction before {};
    count.sa_handler = [](int) { traps = traps + 1; };
    ASSERT_EQ(::sigaction(SIGTRAP, &count, &before), 0);
    OsDebugBreak();
    ::sigaction(SIGTRAP, &before, nullptr);
    EXPECT_EQ(traps, 1);
}

class ChosenDebugOutput : public testing::Test {
protected:
    void TearDown() override { Choose(nullptr); }
    static void Choose(const char* value) {
        test::SetVariable("DPDU_DEBUG_OUTPUT", value);
        OsChooseDebugOutput();
    }
    std::string Sent() {
        OsDebugOutput("100 %s %n");
        return daemon_.Text();
    }
    test::FakeLogDaemon daemon_;
};

TEST_F(ChosenDebugOutput, GoesToTheSystemLogAsItIs) {
    Choose("syslog");
    EXPECT_EQ(Sent(), "100 %s %n");
    EXPECT_EQ(daemon_.Priority(), LOG_USER | LOG_DEBUG);
}

TEST_F(ChosenDebugOutput, GoesNowhereUnlessTheEnvironmentAsksForIt) {
    for (const char* value : {static_cast<const char*>(nullptr), "", "1", "journal", "syslogd"}) {
        Choose(value);
        EXPECT_EQ(Sent(), "") << (value != nullptr ? value : "not set");
    }
}

TEST_F(ChosenDebugOutput, StaysAsChosenUntilTheNextChoice) {
    Choose("syslog");
    test::SetVariable("DPDU_DEBUG_OUTPUT", nullptr);
    EXPECT_EQ(Sent(), "100 %s %n");
}

TEST(LibraryReference, IsNotTakenIfTheLibraryIsUnknown) {
    void* reference = &reference;
    {
        const SystemCallFault fault("dladdr", 0);
        reference = OsHoldLibrary();
    }
    EXPECT_EQ(reference, nullptr);
    OsReleaseLibrary(nullptr);  // allowed
}

TEST(RandomNumber, DiffersWithoutTheSystemsRandomness) {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    int calls = 0;
    {
        const SystemCallFault fault("getrandom", EAGAIN);
        first = OsRandomNumber();
        second = OsRandomNumber();
        calls = fault.Calls();
    }
    EXPECT_EQ(calls, 2);
    EXPECT_NE(first, second);
}

}  // namespace
}  // namespace tarvik
