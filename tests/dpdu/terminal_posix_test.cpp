// The client on a terminal.

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "client_run.h"

namespace {

// What the program writes on a terminal of 80 columns, with another vendor's library.
std::string RunOnTerminal(const std::vector<std::string>& words) {
    std::string program = DPDU_PROGRAM;
    std::vector<std::string> texts = words;
    std::vector<char*> arguments = {program.data()};
    for (std::string& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);

    winsize size = {24, 80, 0, 0};
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        setenv("DPDU_LIBRARY", FAKE_LIBRARY, 1);
        unsetenv("FAKE_DPDU_REPORT");
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    EXPECT_GT(child, 0);
    std::string output;
    char buffer[4096];
    for (ssize_t count; (count = read(terminal, buffer, sizeof buffer)) > 0;)
        output.append(buffer, static_cast<std::size_t>(count));
    close(terminal);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0) << output;
    std::erase(output, '\r');
    return output;
}

TEST(DpduOnATerminal, SingleAnswerIsAlsoShownInWords) {
    EXPECT_EQ(RunOnTerminal({"request", "22F190"}),
              "62 F1 90 54 45 53 54 56 31 4E 30 30 30 30 30 30 30 30 30 31\n"
              "  ReadDataByIdentifier F190 VINDataIdentifier \"TESTV1N0000000001\"\n");
}

}  // namespace
