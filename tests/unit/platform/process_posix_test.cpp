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
        const SystemCallFault fault("fopen", EMFILE);
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

// In a child process: whether a daemon runs is looked up once a second.
const test::ChildBody kWithDaemon("log-daemon", [] {
    const test::FakeLogDaemon daemon;
    OsDebugOutput("100 %s %n");
    std::printf("%d %s", daemon.Priority(), daemon.Text().c_str());
    return 0;
});

TEST(DebugOutput, GoesToTheLogDaemonAsItIs) {
    const std::string expected = std::to_string(LOG_USER | LOG_DEBUG) + " 100 %s %n";
    EXPECT_EQ(RunChild("log-daemon").output, expected);
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
