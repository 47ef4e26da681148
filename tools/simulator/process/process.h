// Starting programs.

#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace brennix {

struct ProcessOptions {
    int input = -1;  // -1: the simulator's own
    int output = -1;
    bool silent_errors = false;
    bool own_group = false;  // of processes, so that a terminal's signals do not reach it
};

// `environment` is added to the simulator's own; an empty value removes the variable. Signals are
// as the simulator found them. Throws std::runtime_error when the program cannot be run.
pid_t StartProcess(const std::vector<std::string>& command,
                   const std::map<std::string, std::string>& environment,
                   const ProcessOptions& options = {});

}  // namespace brennix
