// Runs a program, without anything on its standard input, and captures its output; one
// implementation per operating system.

#ifndef TESTS_DPDU_PROCESS_H
#define TESTS_DPDU_PROCESS_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct ProcessSetup {
    std::string program;
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string, std::string>>
        environment;          // added; an empty value removes the variable
    std::string output_path;  // for standard output; empty: a pipe that nobody reads
    std::string error_path;   // for standard error
    std::string input_path;   // of standard input; empty: none
};

// Zero: the process did not start. Pass the handle to WaitForProcess.
using ProcessHandle = std::intptr_t;
ProcessHandle StartProcess(const ProcessSetup& setup);

// Does what the user's Ctrl-C does; false if the system refuses.
bool InterruptProcess(ProcessHandle process);

// The exit code, or a negative number if the process ended abnormally.
int WaitForProcess(ProcessHandle process);

// Unique among the running processes.
unsigned long OwnProcessId();

#endif  // TESTS_DPDU_PROCESS_H
