// Compares completion scripts and manual page with the program's help.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "client_run.h"
#include "completion/scripts.h"

namespace {

using Names = std::set<std::string>;

struct Help {
    Names commands;
    Names options;
};

std::vector<std::string> WordsOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    return words;
}

// "-o,--output FILE ..." has two names.
void AddOptionNames(const std::string& word, Names* options) {
    std::istringstream stream(word);
    for (std::string name; std::getline(stream, name, ',');)
        options->insert(name);
}

Help HelpOf(const std::string& command) {
    std::vector<std::string> arguments = WordsOf(command);
    arguments.emplace_back("--help");
    const ClientResult result = RunClient(arguments);
    EXPECT_EQ(result.exit_code, kOk) << command;
    Help help;
    bool is_command = false;
    std::istringstream stream(result.output);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line[0] != ' ') is_command = line.starts_with("Subcommands:");
        const bool is_entry = line.size() > 2 && line.starts_with("  ") && line[2] != ' ';
        if (!is_entry) continue;
        const std::string word = WordsOf(line).front();
        if (is_command) help.commands.insert(word);
        if (word[0] == '-') AddOptionNames(word, &help.options);
    }
    return help;
}

// Every command with its help; the program itself has an empty name.
std::vector<std::pair<std::string, Help>> AllHelp() {
    std::vector<std::pair<std::string, Help>> all = {{"", HelpOf("")}};
    for (std::size_t i = 0; i < all.size(); ++i) {
        const std::string head = all[i].first.empty() ? "" : all[i].first + " ";
        const Names commands = all[i].second.commands;
        for (const std::string& command : commands)
            all.emplace_back(head + command, HelpOf(head + command));
    }
    return all;
}

std::string RunProgram(const std::string& program, const std::vector<std::string>& arguments) {
    ClientSetup setup;
    setup.program = program;
    setup.arguments = arguments;
    const ClientResult result = RunClient(setup);
    EXPECT_EQ(result.exit_code, 0) << result.error;
    EXPECT_EQ(result.error, "");
    return result.output;
}

// What the shell offers after the words of a line.
std::vector<std::string> CompleteInBash(const std::string& line) {
    const std::string script = "source '" CLIENT_FOLDER
                               "/completion/dpdu.bash'\n"
                               "COMP_WORDS=('" DPDU_PROGRAM "' " +
                               line +
                               " '')\n"
                               "COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
                               "_dpdu\n"
                               "printf '%s\\n' \"${COMPREPLY[@]}\"\n";
    return WordsOf(RunProgram(BASH_PROGRAM, {"-c", script}));
}

// What a function of the script offers, after the options that zsh has found in the line.
std::vector<std::string> OfferedInZsh(const std::string& function,
                                      const std::string& options = "") {
    const std::string script =
        "_arguments() { }\n"
        "_describe() { }\n"
        "source '" CLIENT_FOLDER
        "/completion/_dpdu'\n"
        "dpdu() { '" DPDU_PROGRAM
        "' \"$@\" }\n"
        "_call_program() { shift; eval \"$*\" }\n"  // as zsh's own does
        "compadd() { print -rl -- \"$@\" }\n"
        "typeset -A opt_args=(" +
        options + ")\n" + function + "\n";
    return WordsOf(RunProgram(ZSH_PROGRAM, {"-f", "-c", script}));
}

Names Starting(const std::vector<std::string>& words, bool with_dash) {
    Names names;
    for (const std::string& word : words) {
        if ((word[0] == '-') == with_dash) names.insert(word);
    }
    return names;
}

std::string FunctionOf(const std::string& command) {
    std::string name = command.empty() ? "_dpdu" : "_dpdu_" + command;
    for (char& character : name) {
        if (character == ' ' || character == '-') character = '_';
    }
    return name;
}

// What a function of the script passes to zsh's helpers.
Help HelpInZsh(const std::string& command) {
    const std::string script =
        "_arguments() { print -rl -- \"$@\" }\n"
        "_describe() { print -rl -- command:${^commands} }\n"
        "source '" CLIENT_FOLDER
        "/completion/_dpdu' >/dev/null\n"
        "_arguments() { print -rl -- \"$@\"; state=command }\n" +
        FunctionOf(command) + "\n";
    Help help;
    int rest_arguments = 0;
    std::istringstream stream(RunProgram(ZSH_PROGRAM, {"-f", "-c", script}));
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("*:")) ++rest_arguments;
        if (line.starts_with("*-")) help.options.insert(line.substr(1, line.find('[') - 1));
        if (line.starts_with("command:")) {
            const std::string rest = line.substr(8);
            help.commands.insert(rest.substr(0, rest.find(':')));
        }
    }
    EXPECT_LE(rest_arguments, 1) << "zsh refuses to complete " << command;
    return help;
}

// ---------------------------------------------------------------------------------------------

TEST(DpduCompletion, ScriptsInTheRepositoryMatchTheCommands) {
    const auto commands = dpdu::DescribeCommands();
    const std::string advice = "build the target update_completion";
    EXPECT_EQ(ReadWholeFile(CLIENT_FOLDER "/completion/dpdu.bash"), dpdu::BashCompletion(commands))
        << advice;
    EXPECT_EQ(ReadWholeFile(CLIENT_FOLDER "/completion/_dpdu"), dpdu::ZshCompletion(commands))
        << advice;
    EXPECT_EQ(ReadWholeFile(CLIENT_FOLDER "/completion/dpdu_completion.ps1"),
              dpdu::PowerShellCompletion(commands))
        << advice;
}

// The texts of a line "    'KEY' = @('ONE', 'TWO')" of the script for PowerShell.
std::vector<std::string> ListOfPowerShell(const std::string& script, const std::string& key) {
    const std::string head = "    '" + key + "' = @(";
    const std::size_t begin = script.find("\n" + head);
    if (begin == std::string::npos) return {};
    const std::size_t first = begin + 1 + head.size();
    std::string list = script.substr(first, script.find(")\n", first) - first);
    std::erase(list, '\'');
    std::replace(list.begin(), list.end(), ',', ' ');
    return WordsOf(list);
}

// There is no PowerShell to run it.
TEST(DpduCompletion, PowerShellScriptHasTheCommandsAndOptionsOfTheHelp) {
    const std::string script = dpdu::PowerShellCompletion(dpdu::DescribeCommands());
    for (const auto& [command, help] : AllHelp()) {
        const std::vector<std::string> words = ListOfPowerShell(script, command);
        EXPECT_EQ(Starting(words, true), help.options) << command;
        if (help.commands.empty()) continue;
        EXPECT_EQ(Starting(words, false), help.commands) << command;
    }
    EXPECT_EQ(ListOfPowerShell(script, "trace export --format"),
              (std::vector<std::string>{"candump", "asc", "chrome", "pcapng"}));
    for (const char* pair : {"()", "{}", "[]"}) {
        EXPECT_EQ(std::count(script.begin(), script.end(), pair[0]),
                  std::count(script.begin(), script.end(), pair[1]))
            << pair;
    }
}

TEST(DpduCompletion, ComParamsAreOfferedByName) {
    EXPECT_TRUE(Starting(CompleteInBash("comparam get"), false).contains("CP_P2Max"));
    EXPECT_TRUE(Starting(CompleteInBash("comparam set"), false).contains("CP_P2Max="));
    EXPECT_TRUE(Starting(CompleteInBash("request 3E00 --param"), false).contains("CP_P2Max="));
    EXPECT_TRUE(CompleteInBash("request 3E00 --param CP_P2Max =").empty());
    EXPECT_TRUE(Starting(OfferedInZsh("_dpdu_of_comparams"), false).contains("CP_P2Max"));
    EXPECT_TRUE(Starting(OfferedInZsh("_dpdu_of_assignments"), false).contains("CP_P2Max="));
}

TEST(DpduCompletion, LibrariesOfTheRootFileAreOffered) {
    const std::string root = TemporaryPath("completion_root.xml");
    std::ofstream(root) << "<MVCI_PDU_API_ROOT><MVCI_PDU_API><SHORT_NAME>One_1</SHORT_NAME>"
                           "<SUPPLIER_NAME>Two words</SUPPLIER_NAME></MVCI_PDU_API>"
                           "<MVCI_PDU_API><SHORT_NAME>Other</SHORT_NAME></MVCI_PDU_API>"
                           "</MVCI_PDU_API_ROOT>";
    for (const char* line : {" vin --vendor", " root check"}) {
        EXPECT_EQ(Starting(CompleteInBash("--root '" + root + "'" + line), false),
                  (Names{"One_1", "Other"}))
            << line;
    }
    const std::string in_zsh = "--root \"'" + root + "'\"";  // zsh keeps the quotes of the line
    EXPECT_EQ(Starting(OfferedInZsh("_dpdu_of_libraries", in_zsh), false),
              (Names{"One_1", "Other"}));
    std::filesystem::remove(root);
    EXPECT_TRUE(Starting(OfferedInZsh("_dpdu_of_libraries", in_zsh), false).empty());
    EXPECT_TRUE(CompleteInBash("--root '" + root + "' vin --vendor").empty());
}

TEST(DpduCompletion, BashOffersExactlyTheCommandsAndOptionsOfTheHelp) {
    const auto all = AllHelp();
    EXPECT_GT(all.size(), 18u);
    for (const auto& [command, help] : all) {
        const std::vector<std::string> words = CompleteInBash(command);
        EXPECT_EQ(Starting(words, true), help.options) << command;
        if (help.commands.empty()) continue;  // values and files may follow
        EXPECT_EQ(Starting(words, false), help.commands) << command;
    }
}

TEST(DpduCompletion, ZshOffersExactlyTheCommandsAndOptionsOfTheHelp) {
    for (const auto& [command, help] : AllHelp()) {
        const Help offered = HelpInZsh(command);
        EXPECT_EQ(offered.options, help.options) << command;
        EXPECT_EQ(offered.commands, help.commands) << command;
    }
}

TEST(DpduCompletion, KnownValuesAreOffered) {
    EXPECT_EQ(CompleteInBash("trace export --format"),
              (std::vector<std::string>{"candump", "asc", "chrome", "pcapng"}));
    EXPECT_EQ(CompleteInBash("raw send 123 --primitive"),
              (std::vector<std::string>{"startcomm", "sendrecv"}));
    EXPECT_TRUE(Starting(CompleteInBash("ioctl"), false).contains("battery"));
    EXPECT_TRUE(CompleteInBash("vin --module").empty());
}

TEST(DpduCompletion, ValueOfAnOptionIsNotMistakenForACommand) {
    EXPECT_TRUE(Starting(CompleteInBash("--module raw"), false).contains("modules"));
    EXPECT_EQ(Starting(CompleteInBash("--module vin raw"), false), (Names{"send", "listen"}));
}

// ---------------------------------------------------------------------------------------------

// The manual page's source, with plain dashes.
std::string Manual() {
    std::string text = ReadWholeFile(CLIENT_FOLDER "/dpdu.1");
    for (std::size_t at = text.find("\\-"); at != std::string::npos; at = text.find("\\-", at))
        text.erase(at, 1);
    return text;
}

// The names in the headings of the section COMMANDS.
Names CommandsOfManual() {
    const std::string text = Manual();
    const std::size_t begin = text.find(".SH COMMANDS");
    std::istringstream stream(text.substr(begin, text.find(".SH OPTIONS") - begin));
    Names names;
    bool is_heading = false;
    for (std::string line; std::getline(stream, line);) {
        if (is_heading && line.starts_with(".B ")) names.insert(line.substr(3));
        if (is_heading && line.starts_with(".BR ")) {
            for (std::size_t at = line.find('"'); at != std::string::npos;) {
                const std::size_t end = line.find('"', at + 1);
                std::string name = line.substr(at + 1, end - at - 1);
                name.erase(0, name.find_first_not_of(' '));
                if (!name.empty()) names.insert(name);
                at = line.find('"', end + 1);
            }
        }
        is_heading = line == ".TP";
    }
    return names;
}

TEST(DpduManual, IsFormattedWithoutWarnings) {
    const std::string page =
        RunProgram(GROFF_PROGRAM, {"-man", "-ww", "-Tascii", "-P-cbou", CLIENT_FOLDER "/dpdu.1"});
    EXPECT_TRUE(Contains(page, "SYNOPSIS")) << page;
}

TEST(DpduManual, ListsExactlyTheCommandsOfTheHelp) {
    Names commands;
    for (const auto& [command, help] : AllHelp()) {
        if (help.commands.empty()) commands.insert(command);  // a group is not a command
    }
    EXPECT_EQ(CommandsOfManual(), commands);
}

TEST(DpduManual, ListsEveryCommonOption) {
    const std::string text = Manual();
    for (const std::string& option : HelpOf("").options)
        EXPECT_TRUE(Contains(text, option)) << option;
}

// The numbers at the beginnings of the lines between two marks, each after `head`.
Names NumbersAfter(const std::string& head, const std::string& text, const std::string& begin,
                   const std::string& end) {
    const std::size_t start = text.find(begin);
    EXPECT_NE(start, std::string::npos) << begin;
    std::istringstream stream(text.substr(start, text.find(end, start) - start));
    Names numbers;
    for (std::string line; std::getline(stream, line);) {
        if (!line.starts_with(head)) continue;
        line.erase(0, line.find_first_not_of(' ', head.size()));
        if (std::isdigit(static_cast<unsigned char>(line[0]))) {
            numbers.insert(line.substr(0, line.find(' ')));
        }
    }
    return numbers;
}

TEST(DpduManual, ListsExactlyTheExitCodesOfTheHelp) {
    const ClientResult help = RunClient({"--help"});
    const Names codes = NumbersAfter(" ", help.output, "Exit codes:", "Of several");
    EXPECT_TRUE(codes.contains("130"));
    EXPECT_EQ(NumbersAfter(".B ", Manual(), ".SH EXIT STATUS", ".SH ENVIRONMENT"), codes);
}

}  // namespace
