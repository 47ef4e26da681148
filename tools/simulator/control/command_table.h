// The commands of a control channel as a table; all programs share finding, running and describing
// them.

#pragma once

#include <algorithm>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "control/record_commands.h"
#include "control/words.h"

namespace brennix {

// `Context` is what a command works on.
template <typename Context>
struct CommandRow {
    const char* name;
    const char* arguments;
    const char* purpose;
    CommandResult (*run)(Context*);

    std::string Usage() const {
        return std::string(name) + (*arguments == '\0' ? "" : " ") + arguments;
    }

    CommandResult Run(Context* context) const {
        try {
            return run(context);
        } catch (const UsageError& error) {
            return {std::string("error: ") + name + ": " + error.what(), {}};
        } catch (const std::exception& error) {
            return {std::string("error: ") + error.what(), {}};
        }
    }
};

template <typename Context>
using CommandTable = std::span<const CommandRow<Context>>;

// Null: unknown.
template <typename Context>
const CommandRow<Context>* FindCommand(CommandTable<Context> table, std::string_view name) {
    const auto found = std::find_if(table.begin(), table.end(),
                                    [name](const auto& row) { return name == row.name; });
    return found == table.end() ? nullptr : &*found;
}

// All commands with arguments and purpose, for help texts.
template <typename Context>
std::string DescribeCommands(CommandTable<Context> table) {
    std::string text;
    for (const CommandRow<Context>& row : table) {
        std::string usage = "  " + row.Usage();
        usage.resize(std::max<std::size_t>(usage.size() + 2, 28), ' ');
        text += usage + row.purpose + "\n";
    }
    return text;
}

// The commands with their arguments on one line.
template <typename Context>
std::string ListCommands(CommandTable<Context> table) {
    std::string text;
    for (const CommandRow<Context>& row : table)
        text += (text.empty() ? "" : "; ") + row.Usage();
    return text;
}

}  // namespace brennix
