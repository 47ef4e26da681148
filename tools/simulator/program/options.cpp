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
  changes for other programs. The exit code is the program's:
    brennix-sim --vehicle car.json --usb ttyACM0 -- ./my-tester --read-vin

  The same for a Windows program under Wine, in the prefix that WINEPREFIX names:
    brennix-sim --vehicle car.json --wine COM5 -- wine my-tester.exe

  Keep it running, with the port at a fixed path and all traffic in a file:
    brennix-sim --vehicle car.json --link /tmp/dongle --record traffic.jsonl

  Replay a problem from the field, from the trace file that the library wrote there:
    brennix-sim replay dpdu_coptrace_4711_1.jsonl --usb ttyACM0 -- ./my-tester --read-vin

  Two dongles; unplug the second one while the program runs:
    brennix-sim --vehicle car.json --vehicle truck.json --usb ttyACM0 --usb ttyACM1 \
        --control 5005 -- ./my-tester &
    printf '@1 unplug\n' | nc -N 127.0.0.1 5005

Control commands, one line each over TCP, answered by "ok …" or "error: …". "@N " before a command
selects dongle N; the default is dongle 0 (for stats, record, wait, violations and reset: all):
)";

constexpr const char* kEnvironment = R"(
The command gets BRENNIX_SIM_CONTROL (address of the control channel), BRENNIX_SIM_PORTS (names of
the ports, separated by commas) and, with --scratch, BRENNIX_SIM_SCRATCH.

Exit codes: the command's own, or 0 without a command. 1: invalid options, vehicle file or set-up.
3: with --strict, the host broke the protocol or sent a request that the replayed trace lacks,
whatever the command's own is.
)";

void CheckPortNames(const Options& options) {
    for (const std::string& name : options.usb_ports) {
        if (!UsbMock::IsNodeName(name)) {
            throw CLI::ValidationError("--usb", name + " is not a name like ttyACM0 or ttyUSB3");
        }
    }
    for (const std::string& name : options.wine_ports) {
        if (!WinePorts::IsPortName(name)) {
            throw CLI::ValidationError("--wine", name + " is not a name like COM5");
        }
    }
    for (const std::string& name : options.foreign_ports) {
        if (!UsbMock::IsNodeName(name) && !WinePorts::IsPortName(name)) {
            throw CLI::ValidationError("--foreign", name + " is not a name like ttyUSB3 or COM6");
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

// All other options are valid too, before or after the word "replay".
void AddReplay(CLI::App* app, Options* options) {
    CLI::App* replay = app->add_subcommand(
        "replay", "replays a trace file of the library; --vehicle then only describes the dongle");
    replay->fallthrough();
    replay
        ->add_option("TRACE", options->traces,
                     "trace file, dpdu_coptrace_….jsonl; repeat for later processes")
        ->required()
        ->type_name("FILE");
    replay->add_option("--speed", options->replay.speed, "2: twice as fast, 0: no waiting")
        ->type_name("X")
        ->check(CLI::Range(0.0, 1000.0))
        ->capture_default_str();
    replay
        ->add_option("--fill-cut", options->replay.fill,
                     "byte that fills up answers cut in the trace; default: leave them out")
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
        "Simulated Brennix dongle with a vehicle behind it. Runs the command after --, if any.");
    app.set_version_flag("--version", BRENNIX_SIM_VERSION);
    app.footer(kExamples + Commands::Help() + kEnvironment);
    app.get_formatter()->column_width(34);

    AddVehicleOptions(&app, &options, kMaxDongles);
    app.add_flag("--check", options.check_only, "check the files, print what is in them and exit");
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
