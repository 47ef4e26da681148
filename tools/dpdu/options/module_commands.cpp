#include <memory>

#include "options/command_set.h"
#include "options/link_options.h"

namespace dpdu {
namespace {

constexpr char kModulesFooter[] = R"(
Examples:
  dpdu modules
  dpdu modules --wait 10              wait up to ten seconds for a dongle
  dpdu modules --module USB --json    those whose name contains USB, as JSON)";

constexpr char kVersionFooter[] = R"(
Examples:
  dpdu version
  dpdu version --json
  dpdu version --library ./other_vendor.so)";

constexpr char kComParamFooter[] = R"(
Values live in the library for as long as the program runs: 'set' shows what the library
makes of a value. To make a request with other values use 'dpdu request --param'.

Values: numbers 1000 or 0x3E8; byte fields 3E80; long fields 500000,250000; struct fields
one group of numbers for each entry, as 1:0:50:1:244,2:0:50:1:244.

Examples:
  dpdu comparam list
  dpdu comparam list --filter TesterPresent
  dpdu comparam get CP_P2Max CP_P2Star
  dpdu comparam set CP_P2Max=150000 CP_TesterPresentMessage=3E80 --json)";

struct ComParamTexts {
    std::vector<std::string> names;
    std::vector<std::string> assignments;
    std::string filter;
    LinkOptions link;
};

using ComParamCommand = bool (*)(const CommonOptions&, const ComParamOptions&, Output*);

CLI::App* AddComParamAction(CommandSet* commands, CLI::App* group, const char* name,
                            const char* description, ComParamCommand run_command,
                            const std::shared_ptr<ComParamTexts>& texts) {
    CLI::App* command = commands->Add(
        {name, description, kComParamFooter},
        [texts, run_command](auto common) {
            const ComParamOptions options{texts->names, ParseAssignments(texts->assignments),
                                          texts->filter, texts->link};
            return [=](Output* output) { return run_command(common, options, output); };
        },
        group);
    AddProtocolOptions(command, &texts->link);
    return command;
}

void AddComParam(CommandSet* commands) {
    const auto texts = std::make_shared<ComParamTexts>();
    CLI::App* group =
        commands->AddGroup({"comparam", "show and set the library's ComParams", kComParamFooter});
    AddComParamAction(commands, group, "get", "show the values of ComParams", RunComParamGet, texts)
        ->add_option("names", texts->names, "names of ComParams")
        ->required();
    AddComParamAction(commands, group, "set", "set ComParams and show what became of them",
                      RunComParamSet, texts)
        ->add_option("assignments", texts->assignments, "NAME=VALUE")
        ->required();
    AddComParamAction(commands, group, "list", "show all ComParams that the library knows",
                      RunComParamList, texts)
        ->add_option("--filter", texts->filter, "only names that contain this text")
        ->type_name("TEXT");
}

}  // namespace

void AddModuleCommands(CommandSet* commands) {
    commands->Add({"modules", "list the modules (dongles)", kModulesFooter}, [](auto common) {
        return [common](Output* output) { return RunModules(common, output); };
    });
    commands->Add(
        {"version", "show the versions of library, hardware and firmware", kVersionFooter},
        [](auto common) {
            return [common](Output* output) { return RunVersion(common, output); };
        });
    AddComParam(commands);
}

}  // namespace dpdu
