// Running a program and catching everything it prints; one implementation per operating system.

#ifndef TESTS_DPDU_PROCESS_H
#define TESTS_DPDU_PROCESS_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct ProcessSetup {
    std::string program;
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string, std::string>> environment;  // added; an empty value removes
    std::string output_path;                                       // for standard output
    std::string error_path;                                        // for standard error
};

// Zero: it did not start. The handle goes to WaitForProcess.
using ProcessHandle = std::intptr_t;
ProcessHandle StartProcess(const ProcessSetup& setup);

// What the user's Ctrl-C does; false when the system refuses.
bool InterruptProcess(ProcessHandle process);

// The exit code, or a negative number for a process that ended otherwise.
int WaitForProcess(ProcessHandle process);

// Of this process: no other that runs has it.
unsigned long OwnProcessId();

#endif  // TESTS_DPDU_PROCESS_H
