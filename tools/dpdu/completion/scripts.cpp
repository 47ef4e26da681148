#include "completion/scripts.h"

#include <algorithm>
#include <set>

#include "pdu/io_control.h"

namespace dpdu {
namespace {

constexpr char kOrigin[] = "# Made by dpdu_completion from the commands of the program.\n";

std::string Joined(const std::vector<std::string>& texts, const std::string& separator) {
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : separator) + text;
    return joined;
}

bool TakesValue(const OptionDescription& option) {
    return !option.is_positional && !option.value.empty();
}

// What an argument that is no option may be.
std::vector<std::string> PositionalChoices(const CommandDescription& command,
                                           const OptionDescription& option) {
    if (command.name != "ioctl" || option.names.front() != "command") return option.choices;
    std::vector<std::string> names;
    for (const IoControl& control : IoControls()) {
        if (control.short_name) names.emplace_back(control.short_name);
    }
    return names;
}

std::string Identifier(const std::string& command) {
    std::string name = "_dpdu";
    if (!command.empty()) name += "_" + command;
    for (char& character : name) {
        if (character == ' ' || character == '-') character = '_';
    }
    return name;
}

// -------------------------------------------------------------------------------------------
// bash
// -------------------------------------------------------------------------------------------

// The words that may stand where no option's value does.
std::vector<std::string> Words(const CommandDescription& command) {
    std::vector<std::string> words = command.commands;
    for (const OptionDescription& option : command.options) {
        const std::vector<std::string> more =
            option.is_positional ? PositionalChoices(command, option) : option.names;
        words.insert(words.end(), more.begin(), more.end());
    }
    return words;
}

bool HasFileArgument(const CommandDescription& command) {
    return std::any_of(
        command.options.begin(), command.options.end(),
        [](const OptionDescription& option) { return option.is_positional && option.is_file; });
}

// The names of options as the pattern of a case. An option of one name takes a value with every
// command, or with none.
std::string Pattern(const std::vector<CommandDescription>& commands,
                    bool (*wanted)(const OptionDescription&)) {
    std::set<std::string> names;
    for (const CommandDescription& command : commands) {
        for (const OptionDescription& option : command.options) {
            if (TakesValue(option) && wanted(option)) {
                names.insert(option.names.begin(), option.names.end());
            }
        }
    }
    return Joined({names.begin(), names.end()}, " | ") + ")";
}

std::string ChoiceCases(const std::vector<CommandDescription>& commands) {
    std::string cases;
    for (const CommandDescription& command : commands) {
        for (const OptionDescription& option : command.options) {
            if (!TakesValue(option) || option.choices.empty()) continue;
            cases += "                '" + command.name + " " + option.names.front() +
                     "') words='" + Joined(option.choices, " ") + "' ;;\n";
        }
    }
    return cases;
}

std::string WordCases(const std::vector<CommandDescription>& commands) {
    std::string cases;
    for (const CommandDescription& command : commands) {
        cases += "        '" + command.name + "')\n            words='" +
                 Joined(Words(command), " ") + "'\n";
        if (HasFileArgument(command)) cases += "            files=1\n";
        cases += "            ;;\n";
    }
    return cases;
}

std::string CommandPattern(const std::vector<CommandDescription>& commands) {
    std::vector<std::string> patterns;
    for (const CommandDescription& command : commands) {
        if (!command.name.empty()) patterns.push_back("'" + command.name + "'");
    }
    return Joined(patterns, " | ") + ")";
}

// -------------------------------------------------------------------------------------------
// zsh
// -------------------------------------------------------------------------------------------

// Inside single quotes, where brackets and colons mean something to _arguments.
std::string Quoted(const std::string& text) {
    std::string quoted;
    for (const char character : text) {
        if (character == '\'') {
            quoted += "'\\''";
        } else if (character == '[' || character == ']' || character == ':') {
            quoted += std::string("\\") + character;
        } else {
            quoted += character;
        }
    }
    return quoted;
}

std::string Action(const OptionDescription& option, const std::vector<std::string>& choices) {
    if (!choices.empty()) return "(" + Joined(choices, " ") + ")";
    return option.is_file ? "_files" : " ";
}

std::string ArgumentSpecs(const CommandDescription& command) {
    std::string specs;
    int position = 0;
    for (const OptionDescription& option : command.options) {
        if (option.is_positional) {
            const std::string place = option.takes_rest ? "*" : std::to_string(++position);
            specs += " \\\n        '" + place + ":" + Quoted(option.names.front()) + ":" +
                     Action(option, PositionalChoices(command, option)) + "'";
            continue;
        }
        for (const std::string& name : option.names) {
            specs += " \\\n        '*" + name + "[" + Quoted(option.description) + "]";
            if (TakesValue(option)) {
                specs += ":" + Quoted(option.value) + ":" + Action(option, option.choices);
            }
            specs += "'";
        }
    }
    return specs;
}

const CommandDescription* Find(const std::vector<CommandDescription>& commands,
                               const std::string& name) {
    const auto found =
        std::find_if(commands.begin(), commands.end(),
                     [&name](const CommandDescription& command) { return command.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

// A function that completes the name of a command and leaves the rest to that one's function.
std::string ZshGroup(const std::vector<CommandDescription>& commands,
                     const CommandDescription& group) {
    std::string text = Identifier(group.name) +
                       "() {\n    local context state state_descr line\n    typeset -A opt_args\n"
                       "    local -a commands=(\n";
    std::string cases;
    for (const std::string& name : group.commands) {
        const std::string full = group.name + (group.name.empty() ? "" : " ") + name;
        const CommandDescription* command = Find(commands, full);
        text += "        '" + name + ":" + Quoted(command ? command->description : "") + "'\n";
        cases += "                " + name + ") " + Identifier(full) + " ;;\n";
    }
    return text + "    )\n    _arguments -C" + ArgumentSpecs(group) +
           " \\\n        '1:command:->command' \\\n        '*::argument:->argument'\n"
           "    case $state in\n"
           "        command) _describe -t commands command commands ;;\n"
           "        argument)\n            case $words[1] in\n" +
           cases + "            esac\n            ;;\n    esac\n}\n";
}

std::string ZshCommand(const CommandDescription& command) {
    return Identifier(command.name) + "() {\n    _arguments" + ArgumentSpecs(command) + "\n}\n";
}

}  // namespace

std::string BashCompletion(const std::vector<CommandDescription>& commands) {
    const std::string with_value = Pattern(commands, [](const OptionDescription&) { return true; });
    const std::string with_file =
        Pattern(commands, [](const OptionDescription& option) { return option.is_file; });
    return "# bash completion of dpdu\n" + std::string(kOrigin) + R"(
# What may follow a command, in the caller's variables.
_dpdu_words() {
    case $1 in
)" + WordCases(commands) +
           R"(    esac
}

_dpdu() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' next words='' files='' i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            )" +
           with_value +
           R"(
                ((i++)) # the word behind it is its value
                continue
                ;;
        esac
        next="${command:+$command }${COMP_WORDS[i]}"
        case $next in
            )" +
           CommandPattern(commands) +
           R"( command=$next ;;
        esac
    done

    case $previous in
        )" +
           with_file +
           R"( files=1 ;;
        )" +
           with_value +
           R"(
            case "$command $previous" in
)" + ChoiceCases(commands) +
           R"(            esac
            ;;
        *) _dpdu_words "$command" ;;
    esac
    COMPREPLY=($(compgen -W "$words" -- "$current"))
    if [[ $files && $current != -* ]]; then
        compopt -o filenames 2>/dev/null
        local IFS=$'\n'
        COMPREPLY+=($(compgen -f -- "$current"))
    fi
}
complete -F _dpdu dpdu
)";
}

std::string ZshCompletion(const std::vector<CommandDescription>& commands) {
    std::string text = "#compdef dpdu\n# zsh completion of dpdu\n" + std::string(kOrigin);
    for (const CommandDescription& command : commands) {
        text +=
            "\n" + (command.commands.empty() ? ZshCommand(command) : ZshGroup(commands, command));
    }
    return text + "\n_dpdu \"$@\"\n";
}

}  // namespace dpdu
