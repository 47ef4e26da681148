// Parses the command line.

#ifndef TOOLS_DPDU_OPTIONS_COMMAND_LINE_H
#define TOOLS_DPDU_OPTIONS_COMMAND_LINE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "console/failure.h"

namespace dpdu {

struct Invocation {
    CommonOptions common;
    std::function<ExitCode(Output*)> run;  // null: nothing to run; text or error is set
    std::string text;                      // help or version for standard output
    std::string error;                     // one line for standard error
};

// The program's help as data, for completion scripts and tests.
struct OptionDescription {
    std::vector<std::string> names;  // "-o", "--output"; for a positional argument its name
    bool is_positional = false;
    bool takes_rest = false;           // positional: takes all remaining arguments
    std::string value;                 // "SECONDS"; empty: takes none
    std::vector<std::string> choices;  // possible values; empty: any
    bool is_file = false;              // the value is a path
    std::string description;
};

struct CommandDescription {
    std::string name;  // "raw send"; empty: the program
    std::string description;
    std::vector<std::string> commands;  // subcommands: "send"
    std::vector<OptionDescription> options;
};

// The program first, a group before its commands.
std::vector<CommandDescription> DescribeCommands();

// Does not throw for invalid input.
Invocation ParseCommandLine(int count, const char* const* arguments);

}  // namespace dpdu

#endif  // TOOLS_DPDU_OPTIONS_COMMAND_LINE_H
