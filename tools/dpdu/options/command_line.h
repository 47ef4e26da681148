// What the user asked for.

#ifndef TOOLS_DPDU_OPTIONS_COMMAND_LINE_H
#define TOOLS_DPDU_OPTIONS_COMMAND_LINE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"

namespace dpdu {

struct Invocation {
    CommonOptions common;
    std::function<bool(Output*)> run;  // null: nothing to run, see the rest
    std::string text;                  // then: help or version for standard output
    std::string error;                 // or: one line for standard error
};

// What the help of the program says, for completion scripts and manuals.
struct OptionDescription {
    std::vector<std::string> names;  // "-o", "--output"; of an argument without option: its own
    bool is_positional = false;
    bool takes_rest = false;           // of arguments: as many as there are
    std::string value;                 // "SECONDS"; empty: takes none
    std::vector<std::string> choices;  // the values that there are; empty: any
    bool is_file = false;              // the value is a path
    std::string description;
};

struct CommandDescription {
    std::string name;  // "raw send"; empty: the program itself
    std::string description;
    std::vector<std::string> commands;  // those that may follow: "send"
    std::vector<OptionDescription> options;
};

// The program itself first, a group before its commands.
std::vector<CommandDescription> DescribeCommands();

// Never throws for anything that the user typed.
Invocation ParseCommandLine(int count, const char* const* arguments);

}  // namespace dpdu

#endif  // TOOLS_DPDU_OPTIONS_COMMAND_LINE_H
