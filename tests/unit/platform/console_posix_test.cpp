#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <signal.h>
#include <stdio_ext.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

#include "platform/console.h"
#include "platform/message_box.h"
#include "platform/process.h"
#include "unit/faults/system_call_fault.h"
#include "unit/test_system.h"

namespace tarvik {
namespace {

// Whether printing may wait while standard output is this file, which it closes.
bool MayWaitOn(int descriptor) {
    std::fflush(stdout);
    const int before = ::dup(STDOUT_FILENO);
    ::dup2(descriptor, STDOUT_FILENO);
    ::close(descriptor);
    const bool may_wait = OsStandardOutputMayWait();
    ::dup2(before, STDOUT_FILENO);
    ::close(before);
    return may_wait;
}

TEST(StandardOutputOfPosix, TerminalMayWait) {
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(::grantpt(terminal), 0);
    ASSERT_EQ(::unlockpt(terminal), 0);
    const int user_side = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
    ASSERT_GE(user_side, 0);
    EXPECT_TRUE(MayWaitOn(user_side));
    ::close(terminal);
}

TEST(StandardOutputOfPosix, NullDeviceDoesNotWait) {
    const int null_device = ::open("/dev/null", O_WRONLY);
    ASSERT_GE(null_device, 0);
    EXPECT_FALSE(MayWaitOn(null_device));
}

TEST(StandardOutputOfPosix, ClosedOneDoesNotWait) {
    bool may_wait = true;
    {
        const test::SystemCallFault fault("fstat", EBADF);
        may_wait = OsStandardOutputMayWait();
    }
    EXPECT_FALSE(may_wait);
}

// A process has its standard output from the start, and the library does not replace it.
TEST(StandardOutputOfPosix, CreatingAConsoleLeavesItAsItIs) {
    const int null_device = ::open("/dev/null", O_WRONLY);
    ASSERT_GE(null_device, 0);
    std::fflush(stdout);
    const int before = ::dup(STDOUT_FILENO);
    ::dup2(null_device, STDOUT_FILENO);
    OsCreateConsole();
    const bool may_wait = OsStandardOutputMayWait();
    ::dup2(before, STDOUT_FILENO);
    ::close(before);
    ::close(null_device);
    EXPECT_FALSE(may_wait);
}

// ---- a pipe or socket as standard output -------------------------------------------------------

// The first file takes the place of `replaced` while it lives, and the second reads what it gets.
class ReadOutput {
public:
    explicit ReadOutput(int replaced = STDOUT_FILENO) : replaced_(replaced) {
        std::fflush(stdout);
        before_ = ::dup(replaced_);
    }
    ~ReadOutput() {
        std::fflush(stdout);
        ::dup2(before_, replaced_);
        ::close(before_);
        CloseReader();
    }
    ReadOutput(const ReadOutput&) = delete;
    ReadOutput& operator=(const ReadOutput&) = delete;

    // In packet mode, each read gets one write.
    bool MakePipe(int flags = 0) {
        int ends[2] = {-1, -1};
        return ::pipe2(ends, flags) == 0 && Use(ends[1], ends[0]);
    }
    bool MakeSocket(int type) {
        int ends[2] = {-1, -1};
        return ::socketpair(AF_UNIX, type, 0, ends) == 0 && Use(ends[1], ends[0]);
    }
    void Fill() {
        const int flags = ::fcntl(replaced_, F_GETFL);
        ::fcntl(replaced_, F_SETFL, flags | O_NONBLOCK);
        while (::write(replaced_, ".", 1) > 0) {
        }
        ::fcntl(replaced_, F_SETFL, flags);
    }
    // What one read gets; nothing if there is nothing.
    std::string Read(std::size_t most = std::size_t{1} << 20) {
        ::fcntl(reader_, F_SETFL, ::fcntl(reader_, F_GETFL) | O_NONBLOCK);
        std::string text(most, '\0');
        const ssize_t got = ::read(reader_, text.data(), text.size());
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return text;
    }
    void Empty() {
        while (!Read().empty()) {
        }
    }
    void CloseReader() {
        if (reader_ >= 0) ::close(reader_);
        reader_ = -1;
    }

private:
    bool Use(int written, int read) {
        ::dup2(written, replaced_);
        ::close(written);
        reader_ = read;
        return true;
    }
    const int replaced_;
    int before_ = -1;
    int reader_ = -1;
};

void Print(const std::string& text) { OsPrint(text.data(), text.size()); }

// A body that would wait without end is ended by the alarm.
int WithAlarm(bool (*body)()) {
    ::alarm(60);
    return body() ? 0 : 1;
}

bool IsPending(int signal) {
    sigset_t pending;
    ::sigpending(&pending);
    return ::sigismember(&pending, signal) == 1;
}

bool IsBlocked(int signal) {
    sigset_t blocked;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return ::sigismember(&blocked, signal) == 1;
}

const test::ChildBody kReaderGone("reader-gone", [] {
    return WithAlarm([] {
        ReadOutput output;
        ReadOutput errors(STDERR_FILENO);
        if (!output.MakePipe() || !errors.MakePipe()) return false;
        output.CloseReader();
        errors.CloseReader();
        Print("nobody reads this\n");
        OsMessageBox("nor this", "caption", BoxIcon::kError);
        return !IsPending(SIGPIPE) && !IsBlocked(SIGPIPE);
    });
});

TEST(PipedOutput, WithoutReaderDoesNotEndTheProcess) {
    EXPECT_EQ(test::RunChild("reader-gone").exit_code, 0);
}

// Where the pipe cannot be opened a second time, the write itself raises the signal.
const test::ChildBody kReaderGoneWithoutProc("reader-gone-without-proc", [] {
    return WithAlarm([] {
        ReadOutput output;
        if (!output.MakePipe()) return false;
        output.CloseReader();
        const test::SystemCallFault no_proc("open", EACCES);
        std::printf("held by the application\n");
        Print("nobody reads this\n");
        const bool quiet = !IsPending(SIGPIPE);
        __fpurge(stdout);
        return quiet;
    });
});

TEST(PipedOutput, WithoutReaderAndProcDoesNotEndTheProcess) {
    EXPECT_EQ(test::RunChild("reader-gone-without-proc").exit_code, 0);
}

const test::ChildBody kPendingBefore("pending-before", [] {
    return WithAlarm([] {
        sigset_t pipe_signal;
        ::sigemptyset(&pipe_signal);
        ::sigaddset(&pipe_signal, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &pipe_signal, nullptr);
        ::raise(SIGPIPE);
        ReadOutput output;
        if (!output.MakePipe()) return false;
        output.CloseReader();
        Print("nobody reads this\n");
        return IsPending(SIGPIPE) && IsBlocked(SIGPIPE);
    });
});

TEST(PipedOutput, LeavesASignalOfTheApplicationPending) {
    EXPECT_EQ(test::RunChild("pending-before").exit_code, 0);
}

bool DropsWhatHasNoRoom(ReadOutput* output) {
    output->Fill();
    for (int i = 0; i < 3; ++i)
        Print("dropped\n");
    output->Empty();
    Print("shown\n");
    const bool counted = output->Read() == "[Console] Lines dropped: 3\nshown\n";
    Print("shown\n");
    return counted && output->Read() == "shown\n";
}

const test::ChildBody kFullPipe("full-pipe", [] {
    return WithAlarm([] {
        ReadOutput output;
        return output.MakePipe() && DropsWhatHasNoRoom(&output);
    });
});

const test::ChildBody kFullPipeWithoutProc("full-pipe-without-proc", [] {
    return WithAlarm([] {
        ReadOutput output;
        if (!output.MakePipe()) return false;
        const test::SystemCallFault no_proc("open", EACCES);
        return DropsWhatHasNoRoom(&output);
    });
});

const test::ChildBody kFullSocket("full-socket", [] {
    return WithAlarm([] {
        ReadOutput output;
        return output.MakeSocket(SOCK_STREAM) && DropsWhatHasNoRoom(&output);
    });
});

TEST(PipedOutput, DropsAndCountsLinesWithoutRoom) {
    for (const char* child : {"full-pipe", "full-pipe-without-proc", "full-socket"}) {
        EXPECT_EQ(test::RunChild(child).exit_code, 0) << child;
    }
}

enum class Room { kNone, kTakenAfterTheLook };  // by another process

// `held`: what the application has printed before, and the stream holds.
bool DropsALine(Room room, const std::string& held) {
    ReadOutput output;
    if (!output.MakePipe()) return false;
    output.Fill();
    std::fwrite(held.data(), 1, held.size(), stdout);
    {
        std::optional<test::PollReportsAll> seems_free;
        if (room == Room::kTakenAfterTheLook) seems_free.emplace();
        Print("dropped\n");
    }
    output.Empty();
    Print("shown\n");
    return output.Read() == held + "[Console] Lines dropped: 1\nshown\n";
}

constexpr char kHeld[] = "held by the application\n";

const test::ChildBody kFullWithHeldText("full-with-held-text", [] {
    return WithAlarm([] { return DropsALine(Room::kNone, kHeld); });
});

const test::ChildBody kFilledWithHeldText("filled-with-held-text", [] {
    return WithAlarm([] { return DropsALine(Room::kTakenAfterTheLook, kHeld); });
});

const test::ChildBody kFilledWithoutProc("filled-without-proc", [] {
    return WithAlarm([] {
        const test::SystemCallFault no_proc("open", EACCES);
        return DropsALine(Room::kTakenAfterTheLook, "");
    });
});

TEST(PipedOutput, FullOneDoesNotWaitForTextOfTheApplication) {
    for (const char* child :
         {"full-with-held-text", "filled-with-held-text", "filled-without-proc"}) {
        EXPECT_EQ(test::RunChild(child).exit_code, 0) << child;
    }
}

// A socket takes text in pieces of at most half its buffer.
const test::ChildBody kSmallSocket("small-socket", [] {
    return WithAlarm([] {
        ReadOutput output;
        const int least = 1;
        if (!output.MakeSocket(SOCK_STREAM)) return false;
        ::setsockopt(STDOUT_FILENO, SOL_SOCKET, SO_SNDBUF, &least, sizeof least);
        output.Fill();
        output.Read(1);  // room for one piece
        const std::string held = std::string(PIPE_BUF - 4, 'x') + "end\n";
        static char buffer[2 * PIPE_BUF];
        std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
        std::fwrite(held.data(), 1, held.size(), stdout);
        Print("");
        std::string taken = output.Read();
        taken.erase(0, taken.find_first_not_of('.'));
        std::fflush(stdout);
        return !taken.empty() && taken.size() < held.size() && taken + output.Read() == held;
    });
});

TEST(PipedOutput, TakesPartOfTheApplicationsTextAndLeavesTheRest) {
    EXPECT_EQ(test::RunChild("small-socket").exit_code, 0);
}

const test::ChildBody kFullErrors("full-errors", [] {
    return WithAlarm([] {
        ReadOutput errors(STDERR_FILENO);
        if (!errors.MakePipe()) return false;
        errors.Fill();
        OsMessageBox("text", "caption", BoxIcon::kError);
        errors.Empty();
        OsMessageBox("text", "caption", BoxIcon::kError);
        return errors.Read() == "caption\ntext\n";
    });
});

TEST(PipedOutput, MessageBoxDoesNotWaitForRoom) {
    EXPECT_EQ(test::RunChild("full-errors").exit_code, 0);
}

TEST(PipedOutput, FollowsWhatTheApplicationHasPrinted) {
    std::string shown;
    {
        ReadOutput output;
        ASSERT_TRUE(output.MakePipe());
        std::printf("the application's, ");
        Print("the library's\n");
        shown = output.Read();
    }
    EXPECT_EQ(shown, "the application's, the library's\n");
}

TEST(PipedOutput, LineIsOneWrite) {
    const std::string line = std::string(PIPE_BUF - 1, 'x') + "\n";
    std::string piped;
    std::string sent;
    {
        ReadOutput output;
        ASSERT_TRUE(output.MakePipe(O_DIRECT));
        Print(line);
        piped = output.Read();
    }
    {
        ReadOutput output;
        ASSERT_TRUE(output.MakeSocket(SOCK_SEQPACKET));
        Print(line);
        sent = output.Read();
    }
    EXPECT_EQ(piped, line);
    EXPECT_EQ(sent, line);
}

TEST(PipedOutput, StaysBlockingForTheApplication) {
    ReadOutput output;
    ASSERT_TRUE(output.MakePipe());
    const int before = ::fcntl(STDOUT_FILENO, F_GETFL);
    Print("text\n");
    EXPECT_EQ(::fcntl(STDOUT_FILENO, F_GETFL), before);
    EXPECT_EQ(before & O_NONBLOCK, 0);
}

TEST(PipedOutput, DoesNotWait) {
    ReadOutput output;
    ASSERT_TRUE(output.MakePipe());
    EXPECT_FALSE(OsStandardOutputMayWait());
}

}  // namespace
}  // namespace tarvik
