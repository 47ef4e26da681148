// Steps typed at the prompt of `dpdu run`, on a pseudo terminal.

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include "client_run.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kTerminalPatience{20};
constexpr char kPrompt[] = "dpdu> ";
constexpr char kInside[] = "....> ";

// `dpdu run` with a terminal and the fake library. Ended with its object.
class Prompt {
public:
    explicit Prompt(const fs::path& state, const char* option = nullptr) {
        id_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
        if (id_ == 0) {
            ::setenv("DPDU_LIBRARY", FAKE_LIBRARY, 1);
            ::setenv("XDG_STATE_HOME", state.c_str(), 1);
            ::setenv("TERM", "xterm", 1);
            ::execl(DPDU_PROGRAM, DPDU_PROGRAM, "run", option, nullptr);
            ::_exit(127);
        }
    }
    ~Prompt() {
        if (id_ > 0) ::kill(id_, SIGKILL);
        if (id_ > 0) ::waitpid(id_, nullptr, 0);
        ::close(terminal_);
    }
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;

    // What is shown until this text.
    std::string ReadUntil(const std::string& wanted) {
        std::string shown;
        const Clock::time_point deadline = Clock::now() + kTerminalPatience;
        while (!Contains(shown, wanted) && !has_ended_ && Clock::now() < deadline)
            ReadSome(&shown);
        EXPECT_TRUE(Contains(shown, wanted)) << "'" << shown << "' without '" << wanted << "'";
        return shown;
    }
    void Type(const std::string& keys) {
        EXPECT_EQ(::write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    std::string TypeLine(const std::string& keys, const char* next = kPrompt) {
        Type(keys + "\n");
        return ReadUntil(std::string("\n") + next);
    }
    // Returns the exit code. One that goes on is killed.
    int WaitForEnd() {
        ReadAll();
        if (!has_ended_) ::kill(id_, SIGKILL);
        int status = 0;
        ::waitpid(std::exchange(id_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    void ReadSome(std::string* shown) {
        pollfd wait = {terminal_, POLLIN, 0};
        if (::poll(&wait, 1, 100) <= 0) return;
        char block[4096];
        const ssize_t count = ::read(terminal_, block, sizeof block);
        has_ended_ = count <= 0;
        if (!has_ended_) shown->append(block, static_cast<std::size_t>(count));
    }
    // The terminal must have room for the last lines.
    void ReadAll() {
        std::string shown;
        const Clock::time_point deadline = Clock::now() + kTerminalPatience;
        while (!has_ended_ && Clock::now() < deadline)
            ReadSome(&shown);
    }

    pid_t id_ = 0;
    int terminal_ = -1;
    bool has_ended_ = false;
};

class DpduPrompt : public testing::Test {
protected:
    void TearDown() override { fs::remove_all(state_); }

    const fs::path state_ = TemporaryPath("state");
};

TEST_F(DpduPrompt, ExecutesEachStepAndGoesOnAfterAFailure) {
    Prompt prompt(state_);
    prompt.ReadUntil(kPrompt);
    EXPECT_TRUE(Contains(prompt.TypeLine("10 03"), "1: 10 03 -> 50 03"));
    EXPECT_TRUE(Contains(prompt.TypeLine("expect 50 04"), "expected 50 04 .., came 50 03"));
    EXPECT_TRUE(Contains(prompt.TypeLine("bla"), "'bla' is not a step"));
    EXPECT_TRUE(Contains(prompt.TypeLine("set x = answer[9]"), "there is no byte 9"));
    EXPECT_TRUE(Contains(prompt.TypeLine("print $x"), "$x has no value"));
    prompt.TypeLine("repeat 2", kInside);
    prompt.TypeLine("3E 00", kInside);
    const std::string shown = prompt.TypeLine("end");
    EXPECT_TRUE(Contains(shown, "3E 00 -> 7E 00")) << shown;
    EXPECT_NE(shown.find("-> 7E 00"), shown.rfind("-> 7E 00")) << shown;
    prompt.Type("\x04");
    EXPECT_EQ(prompt.WaitForEnd(), 0);
}

TEST_F(DpduPrompt, FailedStepIsOneJsonDocument) {
    Prompt prompt(state_, "--json");
    prompt.ReadUntil(kPrompt);
    const std::string shown = prompt.TypeLine("22 F1 FF");
    const std::size_t document = shown.find("\"error\":");
    EXPECT_NE(document, std::string::npos) << shown;
    EXPECT_EQ(document, shown.rfind("\"error\":")) << shown;
    EXPECT_TRUE(Contains(prompt.TypeLine("bla"), "\"error\":"));
}

TEST_F(DpduPrompt, CompletesStepsVariablesAndComParams) {
    Prompt prompt(state_);
    prompt.ReadUntil(kPrompt);
    prompt.TypeLine("set serial = 12 34");
    EXPECT_TRUE(Contains(prompt.TypeLine("pri\t$se\t"), "\n12 34\r\n"));
    prompt.TypeLine("10 03");
    EXPECT_FALSE(Contains(prompt.TypeLine("expect ex\t50 03"), "came"));
    EXPECT_TRUE(Contains(prompt.TypeLine("expect ex\t50"), "expected 50, came 50 03"));
    prompt.Type("te\t\t");
    EXPECT_TRUE(Contains(prompt.ReadUntil("tester-present  "), "test  tester-present"));
    prompt.Type("\x15param CP_TesterPresentH\t");
    EXPECT_TRUE(Contains(prompt.TypeLine("1"), "andling=1"));
    EXPECT_TRUE(Contains(prompt.TypeLine("22 F1 A2"), "62 F1 A2 00 00 00 01"));
}

TEST_F(DpduPrompt, HistoryIsKeptForThisUserOnly) {
    {
        Prompt prompt(state_);
        prompt.ReadUntil(kPrompt);
        prompt.TypeLine("22 F1 90");
        prompt.Type("\x04");
        EXPECT_EQ(prompt.WaitForEnd(), 0);
    }
    struct stat status = {};
    ASSERT_EQ(::stat((state_ / "Tarvik" / "dpdu" / "history").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    Prompt prompt(state_);
    prompt.ReadUntil(kPrompt);
    EXPECT_TRUE(Contains(prompt.TypeLine("\x1B[A"), "62 F1 90"));  // the key "up"
}

TEST_F(DpduPrompt, InterruptionAtThePromptEndsIt) {
    Prompt prompt(state_);
    prompt.ReadUntil(kPrompt);
    prompt.Type("22 F1\x03");
    EXPECT_EQ(prompt.WaitForEnd(), kInterrupted);
}

}  // namespace
