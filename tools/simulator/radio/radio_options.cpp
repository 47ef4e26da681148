#include "radio/radio_options.h"

#include <CLI/CLI.hpp>

#include "control/commands.h"
#include "radio/radio_commands.h"

namespace brennix {

namespace {

constexpr int kMaxDongles = 250;

constexpr const char* kIntroduction = R"(
Control commands, one line each over TCP, answered by "ok …" or "error: …". "@N " before a command
selects dongle N; the default is dongle 0. Commands of the radio:
)";

constexpr const char* kDongleIntroduction = R"(
Commands of its dongles and vehicles, as in brennix-sim ("unplug": the dongle is out of reach):
)";

constexpr const char* kEnvironment = R"(
The command gets BRENNIX_RADIO (number of the radio's port on 127.0.0.1) and BRENNIX_SIM_CONTROL
(address of the control channel).

Exit codes: the command's own, or 0 without a command. 1: invalid options, vehicle file or set-up.
3: with --strict, a computer broke the rules and the command has succeeded.
)";

}  // namespace

std::optional<RadioOptions> ReadRadioOptions(int argc, char** argv, int* exit_code) {
    RadioOptions options;
    CLI::App app("Simulated radio: Brennix dongles with vehicles, reached over Bluetooth LE.");
    app.set_version_flag("--version", BRENNIX_SIM_VERSION);
    app.footer(kIntroduction + RadioCommands::Help() + kDongleIntroduction + Commands::Help() +
               kEnvironment);
    app.get_formatter()->column_width(34);
    AddVehicleOptions(&app, &options, kMaxDongles);
    app.get_option("--vehicle")->required();
    app.add_flag("--unplugged", options.unplugged, "start with all dongles out of reach");
    app.add_option("--port", options.port, "TCP port of the radio")->type_name("PORT");
    AddControlOptions(&app, &options, "written once all ports are open",
                      "exit code 3 if a computer broke the rules");

    if (!ParseCommandLine(
            &app, argc, argv, "brennix-radio", &options, [] {}, exit_code)) {
        return std::nullopt;
    }
    return options;
}

}  // namespace brennix
