// A child process: this program, started a second time for what may end or block a process, or
// another; one implementation per operating system.

#ifndef TOOLS_DPDU_CHECK_CHILD_PROCESS_H
#define TOOLS_DPDU_CHECK_CHILD_PROCESS_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace dpdu::check {

// The file of this program.
std::string OwnProgram();

struct Command {
    std::string program;  // one without a folder is looked for where the system looks for programs
    std::vector<std::string> arguments;
};

class ChildProcess {
public:
    // Starts the command without a shell, with `input` as its standard input. It has this process's
    // standard error. Throws Failure if the system refuses.
    ChildProcess(const Command& command, const std::string& input);
    // This program with one argument.
    ChildProcess(const std::string& argument, const std::string& input)
        : ChildProcess(Command{OwnProgram(), {argument}}, input) {}
    // Ends it if it still runs. It never runs longer than this process.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    enum class Read { kBytes, kEnd, kNothing };
    // Appends some bytes of its standard output. Nothing: none came within this time.
    Read ReadSome(std::chrono::milliseconds limit, std::string* output);

    // How it ended; an empty text: with exit code 0. Nothing: it still runs after this time.
    std::optional<std::string> WaitForEnd(std::chrono::milliseconds limit);

private:
    struct System;
    std::unique_ptr<System> system_;
};

// For the child: its parent ends it when the user interrupts, and a fault shows no window and
// starts no debugger.
void BecomeChild();

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_CHILD_PROCESS_H
