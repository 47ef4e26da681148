#include "program/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "control/commands.h"
#include "ports/usb_mock.h"
#include "wine/wine_ports.h"

namespace brennix {

namespace {

constexpr int kMaxDongles = 64;

constexpr const char* kExamples = R"(
Examples:
  Check a vehicle file:
    brennix-sim --vehicle car.json --check

  Run a program that searches for the dongle by its USB ids (Linux). It finds /dev/ttyACM0; nothing
  outside the program changes. The exit code is the program's:
    brennix-sim --vehicle car.json --usb ttyACM0 -- ./my-tester --read-vin

  The same for a Windows program under Wine, in the prefix that WINEPREFIX names:
    brennix-sim --vehicle car.json --wine COM5 -- wine my-tester.exe

  Leave it running, with a port at a fixed path and all traffic on record:
    brennix-sim --vehicle car.json --link /tmp/dongle --record traffic.jsonl

  Repeat at a desk what happened in the field, from the library's trace file there:
    brennix-sim replay dpdu_coptrace_4711_1.jsonl --usb ttyACM0 -- ./my-tester --read-vin

  Two dongles, the second one pulled out and put back while the program runs:
    brennix-sim --vehicle car.json --vehicle truck.json --usb ttyACM0 --usb ttyACM1 \
        --control 5005 -- ./my-tester &
    printf '@1 unplug\n' | nc -N 127.0.0.1 5005

Control commands, one line each over TCP, answered by "ok …" or "error: …". "@N " before a command
means dongle N, otherwise it is dongle 0 (for stats, record, wait, violations and reset: all):
)";

constexpr const char* kEnvironment = R"(
The command gets BRENNIX_SIM_CONTROL (address of the control channel), BRENNIX_SIM_PORTS (names of
the ports, separated by commas) and, with --scratch, BRENNIX_SIM_SCRATCH.

Exit codes: the command's own; without one 0. 1: wrong options, vehicle file or set-up. 3: --strict was given and the
host broke the protocol, or asked what the replayed trace does not know.
)";

void CheckPortNames(const Options& options) {
    for (const std::string& name : options.usb_ports) {
        if (!UsbMock::IsNodeName(name)) {
            throw CLI::ValidationError("--usb", name + " is no name like ttyACM0 or ttyUSB3");
        }
    }
    for (const std::string& name : options.wine_ports) {
        if (!WinePorts::IsPortName(name)) {
            throw CLI::ValidationError("--wine", name + " is no name like COM5");
        }
    }
    for (const std::string& name : options.foreign_ports) {
        if (!UsbMock::IsNodeName(name) && !WinePorts::IsPortName(name)) {
            throw CLI::ValidationError("--foreign", name + " is no name like ttyUSB3 or COM6");
        }
    }
}

void CheckCounts(const Options& options) {
    const std::size_t dongles = std::max<std::size_t>(options.DongleCount(), 1);
    for (const auto* names : {&options.links, &options.usb_ports, &options.wine_ports}) {
        if (names->size() > dongles) {
            throw CLI::ValidationError(names->back(),
                                       "more ports than dongles, add --vehicle or --dongles");
        }
    }
}

// All other options hold as well, before or behind the word "replay".
void AddReplay(CLI::App* app, Options* options) {
    CLI::App* replay = app->add_subcommand(
        "replay",
        "plays the vehicle from a trace file of the library; --vehicle then gives the dongle only");
    replay->fallthrough();
    replay
        ->add_option("TRACE", options->traces,
                     "trace file, dpdu_coptrace_….jsonl; again: the next process")
        ->required()
        ->type_name("FILE");
    replay->add_option("--speed", options->replay.speed, "2: twice as fast, 0: without waiting")
        ->type_name("X")
        ->check(CLI::Range(0.0, 1000.0))
        ->capture_default_str();
    replay
        ->add_option("--fill-cut", options->replay.fill,
                     "byte for what long answers lack in the trace; without it they are left out")
        ->type_name("BYTE")
        ->check(CLI::Range(0, 255));
}

void AddPorts(CLI::App* app, Options* options) {
    const auto add = [app](const char* name, std::vector<std::string>* names, const char* form,
                           const char* purpose) {
        app->add_option(name, *names, purpose)->type_name(form)->expected(1)->take_all();
    };
    add("--usb", &options->usb_ports, "ttyACMn",
        "mocked USB serial port (Linux); repeat for the next dongle");
    add("--wine", &options->wine_ports, "COMn", "COM port under Wine; repeat for the next dongle");
    app->add_option("--wine-helper", options->wine_helper, "path of wine_port.exe")
        ->type_name("FILE");
    add("--link", &options->links, "PATH", "symbolic link to the port; repeat for the next dongle");
    add("--foreign", &options->foreign_ports, "NAME",
        "a serial port that is not a dongle and never answers");
}

void CheckVehicles(const Options& options) {
    if (options.vehicles.empty() && options.traces.empty()) {
        throw CLI::RequiredError("--vehicle or a trace to replay");
    }
}

}  // namespace

std::optional<Options> ReadOptions(int argc, char** argv, int* exit_code) {
    Options options;
    CLI::App app(
        "Simulated Brennix dongle with a vehicle behind it. A command after -- runs beside it.");
    app.set_version_flag("--version", BRENNIX_SIM_VERSION);
    app.footer(kExamples + Commands::Help() + kEnvironment);
    app.get_formatter()->column_width(34);

    AddVehicleOptions(&app, &options, kMaxDongles);
    app.add_flag("--check", options.check_only, "read the files, say what is in them, end");
    AddReplay(&app, &options);

    AddPorts(&app, &options);
    app.add_flag("--unplugged", options.unplugged, "start with all dongles unplugged");

    AddControlOptions(
        &app, &options, "written once all ports exist: control address, ports",
        "exit code 3 if the host broke the protocol or sent a request that the trace lacks");
    app.add_option("--scratch", options.scratch,
                   "folder for the command's configuration (config) and temporary files (tmp)")
        ->type_name("FOLDER");

    const auto check = [&options] {
        CheckVehicles(options);
        CheckPortNames(options);
        CheckCounts(options);
    };
    if (!ParseCommandLine(&app, argc, argv, "brennix-sim", &options, check, exit_code)) {
        return std::nullopt;
    }
    return options;
}

}  // namespace brennix
