// What the user asked for.

#ifndef TOOLS_DPDU_COMMAND_LINE_H
#define TOOLS_DPDU_COMMAND_LINE_H

#include <functional>
#include <optional>
#include <string>

#include "commands/commands.h"

namespace dpdu {

struct Invocation {
    CommonOptions common;
    std::function<bool(Output*)> run;  // null: nothing to run, see the rest
    std::string text;                  // then: help or version for standard output
    std::string error;                 // or: one line for standard error
};

// Never throws for anything that the user typed.
Invocation ParseCommandLine(int count, const char* const* arguments);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMAND_LINE_H
