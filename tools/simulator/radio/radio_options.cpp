#include "radio/radio_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <string_view>

#include "control/commands.h"
#include "radio/radio_commands.h"

namespace brennix {

namespace {

constexpr const char* kIntroduction = R"(
Control commands, one line each over TCP, answered by "ok …" or "error: …". "@N " before a command
means dongle N, otherwise it is dongle 0. The radio's own:
)";

constexpr const char* kDongleIntroduction = R"(
Those of its dongles and vehicles, as brennix-sim has them ("unplug": the dongle is out of reach):
)";

constexpr const char* kEnvironment = R"(
The command gets BRENNIX_RADIO (number of the radio's port on 127.0.0.1) and BRENNIX_SIM_CONTROL
(address of the control channel).

Exit codes: the command's own; without one 0. 1: wrong options, vehicle file or set-up. 3: a computer
broke the rules and --strict was given.
)";

}  // namespace

std::optional<RadioOptions> ReadRadioOptions(int argc, char** argv, int* exit_code) {
    RadioOptions options;
    CLI::App app(
        "Simulated radio: Brennix dongles with vehicles that are reached by Bluetooth LE.");
    app.set_version_flag("--version", BRENNIX_SIM_VERSION);
    app.footer(kIntroduction + RadioCommands::Help() + kDongleIntroduction + Commands::Help() +
               kEnvironment);
    app.get_formatter()->column_width(34);
    app.add_option("--vehicle", options.vehicles, "vehicle file (JSON); again: another dongle")
        ->type_name("FILE")
        ->required()
        ->expected(1)
        ->take_all();
    app.add_option("--dongles", options.dongles,
                   "number of dongles; the last vehicle stands behind those that have none")
        ->type_name("N")
        ->check(CLI::Range(1, 250));
    app.add_flag("--unplugged", options.unplugged, "start with all dongles out of reach");
    app.add_option("--port", options.port, "TCP port of the radio")->type_name("PORT");
    app.add_option("--control", options.control_port, "TCP port of the control channel")
        ->type_name("PORT");
    app.add_option("--ready-file", options.ready_file, "written once all ports are open")
        ->type_name("PATH");
    app.add_option("--record", options.record_file, "all traffic as JSON lines")->type_name("PATH");
    app.add_option("--keep", options.keep, "entries kept in memory for record last")
        ->type_name("N")
        ->capture_default_str();
    app.add_flag("--strict", options.strict, "exit code 3 when a computer broke the rules");

    char** const separator = std::find_if(
        argv, argv + argc, [](const char* word) { return std::string_view(word) == "--"; });
    if (separator != argv + argc) options.command.assign(separator + 1, argv + argc);
    try {
        app.parse(static_cast<int>(separator - argv), argv);
        return options;
    } catch (const CLI::Success& done) {
        *exit_code = app.exit(done);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "brennix-radio: %s (see --help)\n", error.what());
        *exit_code = 1;
    }
    return std::nullopt;
}

}  // namespace brennix
