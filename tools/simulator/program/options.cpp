#include "program/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "control/commands.h"
#include "ports/usb_mock.h"
#include "wine/wine_ports.h"

namespace brennix {

namespace {

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
    const std::size_t dongles = options.DongleCount();
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

    app.add_option("--vehicle", options.vehicles, "vehicle file (JSON); again: another dongle")
        ->type_name("FILE")
        ->expected(1)
        ->take_all();
    app.add_option("--dongles", options.dongles,
                   "number of dongles; the last vehicle stands behind those that have none")
        ->type_name("N")
        ->check(CLI::Range(1, 64));
    app.add_flag("--check", options.check_only, "read the files, say what is in them, end");
    AddReplay(&app, &options);

    app.add_option("--usb", options.usb_ports, "mocked USB serial port (Linux); again: next dongle")
        ->type_name("ttyACMn")
        ->expected(1)
        ->take_all();
    app.add_option("--wine", options.wine_ports, "COM port under Wine; again: next dongle")
        ->type_name("COMn")
        ->expected(1)
        ->take_all();
    app.add_option("--wine-helper", options.wine_helper, "path of wine_port.exe")
        ->type_name("FILE");
    app.add_option("--link", options.links, "symbolic link to the port; again: next dongle")
        ->type_name("PATH")
        ->expected(1)
        ->take_all();
    app.add_option("--foreign", options.foreign_ports,
                   "a serial port that is no dongle and does not answer")
        ->type_name("NAME")
        ->expected(1)
        ->take_all();
    app.add_flag("--unplugged", options.unplugged, "start with all dongles pulled out");

    app.add_option("--control", options.control_port, "TCP port of the control channel")
        ->type_name("PORT");
    app.add_option("--ready-file", options.ready_file,
                   "written once all ports are there: control address, ports")
        ->type_name("PATH");
    app.add_option("--record", options.record_file, "all traffic as JSON lines")->type_name("PATH");
    app.add_option("--keep", options.keep, "entries kept in memory for record last")
        ->type_name("N")
        ->capture_default_str();
    app.add_flag(
        "--strict", options.strict,
        "exit code 3 when the host broke the protocol or asked what a trace does not know");
    app.add_option("--scratch", options.scratch,
                   "folder for the command's configuration (config) and temporary files (tmp)")
        ->type_name("FOLDER");

    // What stands after "--" is the command, whatever it looks like.
    char** const separator = std::find_if(
        argv, argv + argc, [](const char* word) { return std::string_view(word) == "--"; });
    if (separator != argv + argc) options.command.assign(separator + 1, argv + argc);
    try {
        app.parse(static_cast<int>(separator - argv), argv);
        CheckVehicles(options);
        CheckPortNames(options);
        CheckCounts(options);
        return options;
    } catch (const CLI::Success& done) {
        *exit_code = app.exit(done);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "brennix-sim: %s (see --help)\n", error.what());
        *exit_code = 1;
    }
    return std::nullopt;
}

}  // namespace brennix
