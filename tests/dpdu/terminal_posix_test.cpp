// The client on a terminal.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "client_run.h"

namespace {

constexpr winsize kUsual = {24, 80, 0, 0};
constexpr winsize kSmall = {24, 40, 0, 0};
constexpr winsize kFlat = {4, 80, 0, 0};

// The program on a terminal, with another vendor's library.
class OnTerminal {
public:
    OnTerminal(const std::vector<std::string>& words, winsize size, const char* kind = "xterm",
               const char* no_color = "") {
        std::string program = DPDU_PROGRAM;
        std::vector<std::string> texts = words;
        std::vector<char*> arguments = {program.data()};
        for (std::string& text : texts)
            arguments.push_back(text.data());
        arguments.push_back(nullptr);
        child_ = forkpty(&terminal_, nullptr, nullptr, &size);
        if (child_ == 0) {
            setenv("DPDU_LIBRARY", FAKE_LIBRARY, 1);
            unsetenv("FAKE_DPDU_REPORT");
            setenv("TERM", kind, 1);
            setenv("NO_COLOR", no_color, 1);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        EXPECT_GT(child_, 0);
    }
    ~OnTerminal() { close(terminal_); }
    OnTerminal(const OnTerminal&) = delete;
    OnTerminal& operator=(const OnTerminal&) = delete;

    void Resize(winsize size) const { EXPECT_EQ(ioctl(terminal_, TIOCSWINSZ, &size), 0); }
    // What it writes from now on, up to and with this text; to its end if the text does not come.
    std::string ReadUntil(const std::string& text) {
        std::string output;
        char character = 0;
        while (!output.ends_with(text) && read(terminal_, &character, 1) == 1)
            if (character != '\r') output += character;
        return output;
    }
    // The rest. It has to end with success.
    std::string ReadToEnd() {
        std::string output;
        char buffer[4096];
        for (ssize_t count; (count = read(terminal_, buffer, sizeof buffer)) > 0;)
            output.append(buffer, static_cast<std::size_t>(count));
        int status = 0;
        EXPECT_EQ(waitpid(child_, &status, 0), child_);
        EXPECT_EQ(WEXITSTATUS(status), 0) << output;
        std::erase(output, '\r');
        return output;
    }

private:
    int terminal_ = -1;
    pid_t child_ = -1;
};

std::string RunOnTerminal(const std::vector<std::string>& words, winsize size = kUsual) {
    return OnTerminal(words, size).ReadToEnd();
}

// What it shows, without what moves the cursor.
std::vector<std::string> LinesOf(std::string output) {
    std::vector<std::string> lines = {""};
    for (std::size_t i = 0; i < output.size(); ++i) {
        if (output[i] == '\x1b') {
            i = output.find_first_of("ABCDHJKm", i);
        } else if (output[i] == '\n') {
            lines.emplace_back();
        } else {
            lines.back() += output[i];
        }
    }
    return lines;
}

const std::vector<std::string> kListen = {"raw", "listen", "--table", "--time", "1"};

TEST(DpduOnATerminal, TableOfFramesFitsItsWidth) {
    const std::string wide = RunOnTerminal(kListen);
    EXPECT_TRUE(Contains(wide, "ID        COUNT  RATE  PERIOD")) << wide;
    EXPECT_TRUE(Contains(wide, "\x1b[7m0D\x1b[27m")) << wide;
    const std::string small = RunOnTerminal(kListen, kSmall);
    EXPECT_TRUE(Contains(small, "18DAF110")) << small;
    for (const std::string& line : LinesOf(small))
        EXPECT_LE(line.size(), 40u) << line;
}

TEST(DpduOnATerminal, TableOfFramesRepeatsNoRowsWhereNotAllOfThemFit) {
    OnTerminal program(kListen, kFlat);
    for (int i = 0; i < 2; ++i) {
        const std::string table = program.ReadUntil("\x1b[J");
        EXPECT_EQ(table.rfind(i == 0 ? "\x1b[KID" : "\x1b[3A\x1b[KID", 0), 0u) << table;
        const std::vector<std::string> lines = LinesOf(table);
        ASSERT_EQ(lines.size(), 4u) << table;
        EXPECT_TRUE(lines[2].ends_with(" more identifiers: see --filter")) << table;
    }
    program.ReadToEnd();
}

TEST(DpduOnATerminal, TableOfFramesShowsNoChangesWithoutColours) {
    const std::string output = OnTerminal(kListen, kUsual, "xterm", "1").ReadToEnd();
    EXPECT_TRUE(Contains(output, "\x1b[J")) << output;
    EXPECT_FALSE(Contains(output, "\x1b[7m")) << output;
}

TEST(DpduOnATerminal, TableOfFramesComesOnceOnADumbTerminal) {
    const std::string output = OnTerminal(kListen, kUsual, "dumb").ReadToEnd();
    EXPECT_FALSE(Contains(output, "\x1b")) << output;
    EXPECT_EQ(output.find("LAST DATA"), output.rfind("LAST DATA")) << output;
    EXPECT_TRUE(Contains(output, "18DAF110")) << output;
}

TEST(DpduOnATerminal, TableOfFramesFollowsAChangeOfItsSize) {
    OnTerminal program({"raw", "listen", "--table", "--time", "2"}, kUsual);
    EXPECT_TRUE(Contains(program.ReadUntil("\x1b[J"), "PERIOD"));
    program.Resize(kSmall);
    EXPECT_TRUE(program.ReadUntil("\x1b[2J\x1b[H").ends_with("\x1b[2J\x1b[H"));
    for (const std::string& line : LinesOf(program.ReadToEnd()))
        EXPECT_LE(line.size(), 40u) << line;
}

TEST(DpduOnATerminal, SingleAnswerIsAlsoShownInWords) {
    EXPECT_EQ(RunOnTerminal({"request", "22F190"}),
              "62 F1 90 54 45 53 54 56 31 4E 30 30 30 30 30 30 30 30 30 31\n"
              "  ReadDataByIdentifier F190 VINDataIdentifier \"TESTV1N0000000001\"\n");
}

}  // namespace
