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
    bool own_group = false;  // process group of its own, out of reach of a terminal's signals
};

// `environment` is added to the simulator's own; an empty value removes the variable. The signal
// mask is the one that the simulator was started with. Throws std::runtime_error if the program
// cannot be run.
pid_t StartProcess(const std::vector<std::string>& command,
                   const std::map<std::string, std::string>& environment,
                   const ProcessOptions& options = {});

}  // namespace brennix
