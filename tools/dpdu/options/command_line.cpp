#include "options/command_line.h"

#include <sstream>

#include "console/failure.h"
#include "options/command_set.h"
#include "text/names.h"

namespace dpdu {
namespace {

constexpr char kDescription[] =
    "dpdu: diagnostic requests through a D-PDU API library (ISO 22900-2)";

constexpr char kMainFooter[] = R"(Environment:
  DPDU_LIBRARY  library to use if neither --library nor --vendor is given

Examples:
  dpdu modules                        list the dongles
  dpdu doctor                         find out why there is none
  dpdu vin                            read the VIN from control unit 7E0:7E8
  dpdu request 22F190                 send any UDS request
  dpdu dtc --json                     read the trouble codes as JSON
  dpdu functional 22F187 --units 7E0-7E7
                                      read the part numbers of several control units
  dpdu scan                           find the control units on the bus
  dpdu raw listen                     show the frames on the bus
  dpdu run test.dpdu                  execute a script of requests and expectations
  dpdu monitor                        show events as they occur
  dpdu request --help                 show a command's options and examples)";

// The parser appends the check to the name of a value: "N:POSITIVE".
std::string ValueName(const CLI::Option& option) {
    if (option.get_items_expected_max() == 0) return "";
    const std::string name = option.get_type_name();
    return name.substr(0, name.find(':'));
}

// A value named "one|other" is one of these words.
std::vector<std::string> Choices(const std::string& value) {
    std::vector<std::string> choices;
    std::istringstream words(value);
    if (value.find('|') == std::string::npos) return choices;
    for (std::string word; std::getline(words, word, '|');)
        choices.push_back(word);
    return choices;
}

OptionDescription Describe(const CLI::Option& option) {
    OptionDescription described;
    described.is_positional = option.nonpositional() == false;
    for (const std::string& name : option.get_snames())
        described.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        described.names.push_back("--" + name);
    if (described.is_positional) described.names = {option.get_name(true)};
    described.takes_rest = described.is_positional && option.get_items_expected_max() > 1;
    described.value = ValueName(option);
    described.choices = Choices(described.value);
    described.is_file = described.value == "FILE" || described.value == "PATH";
    described.description = option.get_description();
    return described;
}

void Describe(const CLI::App& app, const std::string& name,
              std::vector<CommandDescription>* descriptions) {
    CommandDescription described{name, app.get_description(), {}, {}};
    const auto commands = app.get_subcommands(nullptr);
    for (const CLI::App* command : commands)
        described.commands.push_back(command->get_name());
    for (const CLI::Option* option : app.get_options())
        described.options.push_back(Describe(*option));
    descriptions->push_back(std::move(described));
    for (const CLI::App* command : commands)
        Describe(*command, name + (name.empty() ? "" : " ") + command->get_name(), descriptions);
}

// The parser with all commands.
class Parser {
public:
    Parser() {
        // A file may be named /folder/file on Windows too.
        app_.allow_windows_style_options(false);
        app_.require_subcommand(1);
        app_.set_version_flag("--version", "dpdu " DPDU_VERSION);
        app_.footer(std::string(kMainFooter) + kExitCodes);
        app_.fallthrough();
        AddModuleCommands(&commands_);
        AddRequestCommands(&commands_);
        AddScanCommands(&commands_);
        AddTraceCommands(&commands_);
        AddRootCommands(&commands_);
        AddRawCommands(&commands_);
        AddWatchCommands(&commands_);
        AddScriptCommands(&commands_);
    }

    Invocation Parse(int count, const char* const* arguments) {
        Invocation invocation;
        try {
            app_.parse(count, arguments);
            UseEnvironment(commands_.Common());
            invocation.common = *commands_.Common();
            invocation.run = commands_.PrepareChosen();
        } catch (const CLI::Success& success) {
            invocation.text = TextFor(success);
        } catch (const CLI::RequiredError& error) {
            invocation.error = WhatIsMissing(error) + Advice();
        } catch (const CLI::ParseError& error) {
            invocation.error = OnOneLine(error.what()) + Advice();
        } catch (const UsageError& error) {
            invocation.error = error.what() + Advice();
        }
        return invocation;
    }

    std::vector<CommandDescription> Describe() const {
        std::vector<CommandDescription> descriptions;
        dpdu::Describe(app_, "", &descriptions);
        return descriptions;
    }

private:
    static void UseEnvironment(CommonOptions* common) {
        if (!common->library.empty() && !common->vendor.empty()) {
            throw UsageError("--library and --vendor exclude each other");
        }
        if (common->library.empty() && common->vendor.empty()) {
            common->library = EnvironmentText("DPDU_LIBRARY");
        }
    }

    // Text of help or version, which the parser reports as exceptions.
    std::string TextFor(const CLI::Success& success) {
        std::ostringstream text;
        app_.exit(success, text, text);
        return text.str().ends_with('\n') ? text.str() : text.str() + "\n";
    }

    // The parser reports a missing command if an unknown one was given.
    std::string WhatIsMissing(const CLI::RequiredError& error) const {
        const CLI::App* last = LastCommand();
        if (last->get_subcommands(nullptr).empty()) return OnOneLine(error.what());
        const std::vector<std::string> extras = app_.remaining(true);
        return extras.empty() ? "name a command" : "unknown command '" + extras.front() + "'";
    }

    const CLI::App* LastCommand() const {
        const CLI::App* app = &app_;
        while (!app->get_subcommands().empty())
            app = app->get_subcommands().front();
        return app;
    }

    // Refers to the help of the given command, if there is one.
    std::string Advice() const {
        std::string command;
        const CLI::App* app = &app_;
        while (!app->get_subcommands().empty()) {
            app = app->get_subcommands().front();
            command += " " + app->get_name();
        }
        return "; see dpdu" + command + " --help";
    }

    CLI::App app_{kDescription, "dpdu"};
    CommandSet commands_{&app_};
};

}  // namespace

Invocation ParseCommandLine(int count, const char* const* arguments) {
    return Parser().Parse(count, arguments);
}

std::vector<CommandDescription> DescribeCommands() { return Parser().Describe(); }

}  // namespace dpdu
