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
  dpdu root add                            the library beside dpdu
  dpdu root add --folder /opt/tarvik       the library and its description files there
  dpdu root remove --root ./test_root.xml  in another file)";

constexpr char kLibrariesFooter[] = R"(
The names are those that --vendor takes.

Examples:
  dpdu libraries
  dpdu libraries --json
  dpdu modules --vendor Tarvik_DPDU_API_x64_0_1_0)";

using RootCommand = bool (*)(const CommonOptions&, const RootOptions&, Output*);

// Options of commands that read the root file and load no library.
void AddRootOptions(CommandSet* commands, CLI::App* command) {
    command
        ->add_option("--root", commands->Common()->root_file,
                     "the root file (default: the machine's)")
        ->type_name("FILE");
    command->add_flag("--json", commands->Common()->as_json, "print one JSON document");
}

CLI::App* AddRootAction(CommandSet* commands, CLI::App* group, const char* name,
                        const char* description, RootCommand run_command,
                        const std::shared_ptr<RootOptions>& options) {
    CLI::App* command = commands->AddOffline(
        {name, description, kRootFooter},
        [options, run_command](const CommonOptions& common) {
            return [=](Output* output) { return run_command(common, *options, output); };
        },
        group);
    AddRootOptions(commands, command);
    return command;
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
    AddRootAction(commands, group, "list", "show the installed libraries", RunRootList, options);
    AddRootAction(commands, group, "add", "enter this project's library", RunRootAdd, options)
        ->add_option("--folder", options->folder,
                     "where the library and its description files are (default: beside dpdu)")
        ->type_name("PATH");
    AddRootAction(commands, group, "remove", "remove this project's library", RunRootRemove,
                  options);
}

}  // namespace dpdu
