#include <memory>

#include "console/failure.h"
#include "options/command_set.h"
#include "options/link_options.h"
#include "params/known_objects.h"

namespace dpdu {
namespace {

constexpr char kModulesFooter[] = R"(
Examples:
  dpdu modules
  dpdu modules --wait 10              wait up to 10 s for a dongle
  dpdu modules --module USB --json    those with USB in their name, as JSON)";

constexpr char kVersionFooter[] = R"(
Examples:
  dpdu version
  dpdu version --json
  dpdu version --library ./other_vendor.so)";

constexpr char kDoctorFooter[] = R"(
Does what this project's library does to find dongles, without starting it, and changes no
file: reads the configuration, opens serial ports and lets dongles log in, connects to the
relay with key exchange and identification, listens by Bluetooth. Also checks keys, the root
file, the folder for log and trace, and the clock. A port that another program uses is left
alone. Ends within 15 seconds; Ctrl-C shows what was found so far.

Prints each finding, below it what follows from it, and after the arrow what to do. Ends with
1 if something is wrong, with 3 if the library itself cannot be used.

Examples:
  dpdu doctor
  dpdu doctor --json                       findings have an id that stays the same
  dpdu doctor --list                       all findings that there are
  dpdu doctor --library /opt/tester/libtarvik_dpdu_x64.so)";

constexpr char kComParamFooter[] = R"(
The library keeps values only while the program runs: 'set' shows what the library makes
of a value. To send a request with other values use 'dpdu request --param'.

Values: numbers 1000 or 0x3E8; byte fields 3E80; long fields 500000,250000; struct fields
one group of numbers per entry, such as 1:0:50:1:244,2:0:50:1:244.

Examples:
  dpdu comparam list
  dpdu comparam list --filter TesterPresent
  dpdu comparam get CP_P2Max CP_P2Star
  dpdu comparam set CP_P2Max=150000 CP_TesterPresentMessage=3E80 --json)";

constexpr char kObjectsFooter[] = R"(
A library can look up names but cannot list them: without names this tries all names that
the program knows. No module is needed.

Examples:
  dpdu objects
  dpdu objects --type ioctl
  dpdu objects --type comparam --filter TesterPresent
  dpdu objects ISO_11898_RAW HI --json)";

constexpr char kIoCtlFooter[] = R"(
The command is a name from the standard, a number, or one of these short names, each with
its input:
  battery  ignition [PIN]  voltage  cable  reset  power-mode ADDRESS
  set-voltage MILLIVOLTS:PIN  clear-tx-queue  suspend-tx-queue  resume-tx-queue
  clear-rx-queue  buffer-size N  generic BYTES  break  event-queue SIZE:MODE
  start-filter TYPE:NUMBER:MASK:PATTERN,...  stop-filter NUMBER  clear-filters
  vehicle-id [none|vin|eid[:VALUE[:none|vin|group|all[:MS]]]]
  ethernet-switch on|off[:PIN]  entity-status ADDRESS[:MS]  ethernet-pins
  tls-mode  isobus-functions

For another input type, or if the command is a number, put the type before the value:
number=1, bytes=3E80, voltage=, filters=, queue=, vehicle=, switch=, address= or none.

Examples:
  dpdu ioctl battery
  dpdu ioctl PDU_IOCTL_READ_IGNITION_SENSE_STATE --json
  dpdu ioctl ethernet-switch on:8
  dpdu ioctl start-filter pass:1:FFFF:07E8
  dpdu ioctl 5019 address=0x0E80:2000)";

void AddDoctor(CommandSet* commands) {
    const auto options = std::make_shared<DoctorOptions>();
    CLI::App* command = commands->Add({"doctor", "find out why no module is found", kDoctorFooter},
                                      [options](auto common) {
                                          return [common, doctor = *options](Output* output) {
                                              return RunDoctor(common, doctor, output);
                                          };
                                      });
    command->add_flag("--list", options->lists_diagnoses, "show all findings that there are");
}

struct ComParamTexts {
    std::vector<std::string> names;
    std::vector<std::string> assignments;
    std::string filter;
    LinkOptions link;
};

using ComParamCommand = ExitCode (*)(const CommonOptions&, const ComParamOptions&, Output*);

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
    AddComParamAction(commands, group, "set", "set ComParams and show the resulting values",
                      RunComParamSet, texts)
        ->add_option("assignments", texts->assignments, "NAME=VALUE")
        ->required();
    AddComParamAction(commands, group, "list", "show all ComParams that the library knows",
                      RunComParamList, texts)
        ->add_option("--filter", texts->filter, "only names that contain this text")
        ->type_name("TEXT");
}

struct ObjectsTexts {
    std::vector<std::string> names;
    std::string type;
    std::string filter;
};

// "protocol|bus-type|..."
std::string ObjectTypeChoice() {
    std::string choice;
    for (const ObjectType& type : ObjectTypes())
        choice += (choice.empty() ? "" : "|") + std::string(type.name);
    return choice;
}

std::string RequireObjectType(const std::string& text) {
    for (const ObjectType& type : ObjectTypes()) {
        if (text.empty() || text == type.name) return text;
    }
    throw UsageError("'" + text + "' is not a type of object; known: " + ObjectTypeChoice());
}

void AddObjects(CommandSet* commands) {
    const auto texts = std::make_shared<ObjectsTexts>();
    CLI::App* command = commands->Add(
        {"objects", "show the names and ids of objects", kObjectsFooter}, [texts](auto common) {
            const ObjectsOptions options{texts->names, RequireObjectType(texts->type),
                                         texts->filter};
            return [=](Output* output) { return RunObjects(common, options, output); };
        });
    command->add_option("names", texts->names, "names to look up");
    command->add_option("--type", texts->type, "only objects of this type")
        ->type_name(ObjectTypeChoice());
    command->add_option("--filter", texts->filter, "list only names that contain this text")
        ->type_name("TEXT");
}

void AddIoCtl(CommandSet* commands) {
    const auto options = std::make_shared<IoCtlOptions>();
    CLI::App* command = commands->Add(
        {"ioctl", "send a command to the module (PDUIoCtl)", kIoCtlFooter}, [options](auto common) {
            return [common, ioctl = *options](Output* output) {
                return RunIoCtl(common, ioctl, output);
            };
        });
    command->add_option("command", options->command, "name or number")->required();
    command->add_option("input", options->argument, "VALUE or TYPE=VALUE");
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
    AddDoctor(commands);
    AddComParam(commands);
    AddObjects(commands);
    AddIoCtl(commands);
}

}  // namespace dpdu
