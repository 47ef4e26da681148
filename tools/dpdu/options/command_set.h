// Describes the program's commands to the parser. Each file of this folder adds a group of
// commands: their names, options and help texts, and the conversion of the user's input to the
// options of the command.

#ifndef TOOLS_DPDU_OPTIONS_COMMAND_SET_H
#define TOOLS_DPDU_OPTIONS_COMMAND_SET_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "console/failure.h"

namespace dpdu {

using Run = std::function<ExitCode(Output*)>;
// Called after parsing; throws UsageError for invalid values.
using Prepare = std::function<Run(const CommonOptions&)>;

struct CommandTexts {
    const char* name;
    const char* description;
    const char* examples;  // and other text below the options
};

inline constexpr std::uint32_t kLargestMs = 4'000'000;  // in microseconds it fits into 32 bits
inline constexpr std::uint32_t kLargestSeconds = 86'400;

class CommandSet {
public:
    explicit CommandSet(CLI::App* root);
    CommandSet(const CommandSet&) = delete;
    CommandSet& operator=(const CommandSet&) = delete;

    // Adds a command; with a parent, a command of that group.
    CLI::App* Add(const CommandTexts& texts, Prepare prepare, CLI::App* parent = nullptr);
    // As Add, for a command that loads no library; it has none of the common options.
    CLI::App* AddOffline(const CommandTexts& texts, Prepare prepare, CLI::App* parent);
    // Adds a group of commands.
    CLI::App* AddGroup(const CommandTexts& texts);

    CommonOptions* Common() { return &common_; }
    // Prepares the command that the user chose.
    Run PrepareChosen() { return prepare_(common_); }

private:
    CLI::App* root_;
    CommonOptions common_;
    Prepare prepare_;
};

// Adds the options of every command that uses a library. CommandSet::Add calls this.
void AddCommonOptions(CLI::App* command, CommonOptions* common);

// Adds an option that may be given several times, with one value each.
CLI::Option* AddRepeatable(CLI::App* command, const std::string& name,
                           std::vector<std::string>* values, const std::string& description);

// Adds an option with a time of 1 ms or more.
void AddMillisecondsOption(CLI::App* command, const std::string& name, std::uint32_t* milliseconds,
                           const std::string& description);

// Adds "--count N" for commands that end after N events or frames; 0: not given.
void AddCountOption(CLI::App* command, std::uint64_t* count, const std::string& description);

// Adds "--time SECONDS" for commands that run until they are stopped; 0: not given.
void AddTimeOption(CLI::App* command, double* seconds);
std::optional<std::chrono::milliseconds> ParseSeconds(double seconds);

// End of every help text.
extern const char kExitCodes[];

void AddModuleCommands(CommandSet* commands);
void AddRequestCommands(CommandSet* commands);
void AddScanCommands(CommandSet* commands);
void AddRawCommands(CommandSet* commands);
void AddWatchCommands(CommandSet* commands);
void AddTraceCommands(CommandSet* commands);
void AddRootCommands(CommandSet* commands);
void AddScriptCommands(CommandSet* commands);

}  // namespace dpdu

#endif  // TOOLS_DPDU_OPTIONS_COMMAND_SET_H
