#include <memory>

#include "options/command_set.h"

namespace dpdu {
namespace {

constexpr char kRootFooter[] = R"(
Applications find D-PDU libraries in the machine's root file: on Linux
/etc/pdu_api_root.xml, on Windows the file that the registry names. Installers of all
vendors share it. 'add' and 'remove' change this project's entry and leave every other
byte as it is; the old file is kept beside it as FILE.bak.

Examples:
  dpdu root list
  dpdu root check                          is everything that they name as it should be?
  dpdu root add                            the library beside dpdu
  dpdu root add --folder /opt/tarvik       the library and its description files there
  dpdu root remove --root ./test_root.xml  in another file)";

constexpr char kLibrariesFooter[] = R"(
The names are those that --vendor takes.

Examples:
  dpdu libraries
  dpdu libraries --json
  dpdu modules --vendor Tarvik_DPDU_API_x64_0_1_0)";

constexpr char kCheckFooter[] = R"(
Checks what applications need of every library in the root file, or of the one that is
named, whoever its vendor is: entry, addresses, files and who can change them, the library
(its kind, its functions), the module and the cable description, and whether the names, ids,
types and versions in them are those that the library answers. Prints one line per check;
advice follows the arrow. Ends with 1 if something is wrong.

Each library is loaded and used in a process of its own, as an application does: it reads
its configuration, and one of its modules is connected if there is any.

Examples:
  dpdu root check
  dpdu root check Tarvik_DPDU_API_x64_0_1_0 --wait 10
  dpdu root check --root ./test_root.xml --json)";

using RootCommand = ExitCode (*)(const CommonOptions&, const RootOptions&, Output*);

// Options of commands that read the root file and load no library.
void AddRootOptions(CommandSet* commands, CLI::App* command) {
    command
        ->add_option("--root", commands->Common()->root_file,
                     "the root file (default: the machine's)")
        ->type_name("FILE");
    command->add_flag("--json", commands->Common()->as_json, "print one JSON document");
}

CLI::App* AddRootAction(CommandSet* commands, CLI::App* group, const CommandTexts& texts,
                        RootCommand run_command, const std::shared_ptr<RootOptions>& options) {
    CLI::App* command = commands->AddOffline(
        texts,
        [options, run_command](const CommonOptions& common) {
            return [=](Output* output) { return run_command(common, *options, output); };
        },
        group);
    AddRootOptions(commands, command);
    return command;
}

void AddRootCheck(CommandSet* commands, CLI::App* group,
                  const std::shared_ptr<RootOptions>& options) {
    CLI::App* command = AddRootAction(
        commands, group,
        {"check", "find out what is wrong with the installed libraries", kCheckFooter},
        RunRootCheck, options);
    command->add_option("library", options->short_name, "name of the library (default: all)")
        ->type_name("NAME");
    command
        ->add_option("--wait", commands->Common()->wait_seconds,
                     "time to look for a module of each library (default: 3)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, static_cast<double>(kLargestSeconds)).description(""));
    command
        ->add_option("--limit", options->limit_seconds,
                     "longest time for one call of a library (default: 30)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, static_cast<double>(kLargestSeconds)).description(""));
    command->add_flag("--verbose", commands->Common()->is_verbose,
                      "show what the libraries print, on standard error");
}

}  // namespace

void AddRootCommands(CommandSet* commands) {
    CLI::App* libraries = commands->AddOffline(
        {"libraries", "list the installed D-PDU libraries of all vendors", kLibrariesFooter},
        [](const CommonOptions& common) {
            return [common](Output* output) { return RunLibraries(common, output); };
        },
        nullptr);
    AddRootOptions(commands, libraries);

    const auto options = std::make_shared<RootOptions>();
    CLI::App* group = commands->AddGroup(
        {"root", "show and change the machine's list of D-PDU libraries", kRootFooter});
    AddRootAction(commands, group, {"list", "show the installed libraries", kRootFooter},
                  RunRootList, options);
    AddRootCheck(commands, group, options);
    AddRootAction(commands, group, {"add", "enter this project's library", kRootFooter}, RunRootAdd,
                  options)
        ->add_option("--folder", options->folder,
                     "where the library and its description files are (default: beside dpdu)")
        ->type_name("PATH");
    AddRootAction(commands, group, {"remove", "remove this project's library", kRootFooter},
                  RunRootRemove, options);
}

}  // namespace dpdu
