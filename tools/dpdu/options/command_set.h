// The commands of the program while they are being described to the parser. Each file of this
// folder adds a group of commands: their names, options, help texts, and how the texts that the
// user typed become the options of the command itself.

#ifndef TOOLS_DPDU_OPTIONS_COMMAND_SET_H
#define TOOLS_DPDU_OPTIONS_COMMAND_SET_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "commands/commands.h"

namespace dpdu {

using Run = std::function<bool(Output*)>;
// Called once everything is parsed; throws UsageError for texts that make no sense.
using Prepare = std::function<Run(const CommonOptions&)>;

struct CommandTexts {
    const char* name;
    const char* description;
    const char* examples;  // and whatever else is to stand below the options
};

inline constexpr std::uint32_t kLargestMs = 4'000'000;  // still fits 32 bits in microseconds
inline constexpr std::uint32_t kLargestSeconds = 86'400;

class CommandSet {
public:
    explicit CommandSet(CLI::App* root);
    CommandSet(const CommandSet&) = delete;
    CommandSet& operator=(const CommandSet&) = delete;

    // A command of its own, or one of a group when a parent is given.
    CLI::App* Add(const CommandTexts& texts, Prepare prepare, CLI::App* parent = nullptr);
    // One that needs no library; it has none of the common options.
    CLI::App* AddOffline(const CommandTexts& texts, Prepare prepare, CLI::App* parent);
    // A name in front of several commands.
    CLI::App* AddGroup(const CommandTexts& texts);

    CommonOptions* Common() { return &common_; }
    // What the command that was named is to do.
    Run PrepareChosen() { return prepare_(common_); }

private:
    CLI::App* root_;
    CommonOptions common_;
    Prepare prepare_;
};

// Options that every command takes that uses a library; Add has given them to it already.
void AddCommonOptions(CLI::App* command, CommonOptions* common);

// An option that may be given several times, one value each time.
CLI::Option* AddRepeatable(CLI::App* command, const std::string& name,
                           std::vector<std::string>* values, const std::string& description);

// "--time SECONDS" of the commands that go on until they are told to end; 0: not given.
void AddTimeOption(CLI::App* command, double* seconds);
std::optional<std::chrono::milliseconds> ParseSeconds(double seconds);

// At the end of every help text.
extern const char kExitCodes[];

void AddModuleCommands(CommandSet* commands);
void AddRequestCommands(CommandSet* commands);
void AddRawCommands(CommandSet* commands);
void AddWatchCommands(CommandSet* commands);
void AddTraceCommands(CommandSet* commands);

}  // namespace dpdu

#endif  // TOOLS_DPDU_OPTIONS_COMMAND_SET_H
