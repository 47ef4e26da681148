#include "relay/relay_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "relay/faults.h"
#include "relay/relay_commands.h"

namespace brennix {

namespace {

constexpr const char* kExamples = R"(
Examples:
  Make the relay's key and see what to put into the library's config.json:
    brennix-relay keygen

  A relay with one dongle and the demonstration car, on all three ports:
    brennix-relay --vehicle tools/simulator/vehicles/demo.json

  Three dongles, only TCP, for other machines too:
    brennix-relay --vehicle car.json --dongles 3 --host 0.0.0.0 --tcp 7700

  Beside a test program, on free ports; the exit code is the program's:
    brennix-relay --vehicle car.json --tcp 0 --ws 0 -- ./my-tester

  A bad network: the first handshake answer is damaged, every answer comes in small pieces:
    brennix-relay --vehicle car.json --fault "once NHS2 flip 800; packet * split 5 10"

  At run time, over the control channel:
    brennix-relay --vehicle car.json --control 5005 &
    printf 'clients\nkill\n' | nc -N 127.0.0.1 5005

)";

constexpr const char* kCommandsIntroduction = R"(
Control commands, one line each over TCP, answered by "ok …" or "error: …". "#N " before a command
means client N, otherwise it is all clients. The commands of brennix-sim that are about a dongle and
its vehicle (unplug, replug, next, behaviour, unit, data …) are there too, with "@N " for dongle N:
)";

constexpr const char* kEnvironment = R"(
The command gets BRENNIX_RELAY_CONTROL (address of the control channel), BRENNIX_RELAY_TCP,
BRENNIX_RELAY_WS, BRENNIX_RELAY_WSS and BRENNIX_RELAY_PROXY (what belongs into serverAddress,
websocketAddress and proxyAddress), BRENNIX_RELAY_PUBLIC_KEY (serverPublicKey) and
BRENNIX_RELAY_CERTIFICATE (file of the certificate for wss).

Exit codes: the command's own; without one 0. 1: wrong options, vehicle file or set-up. 3: a client
broke the protocol and --strict was given.
)";

std::string DefaultFolder() {
    if (const char* base = std::getenv("XDG_CONFIG_HOME"); base != nullptr && *base != '\0') {
        return std::string(base) + "/brennix-relay";
    }
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/.config/brennix-relay";
}

// With no port named: all of them, at their usual numbers.
void ChoosePorts(RelayOptions* options) {
    if (options->tcp_port || options->ws_port || options->wss_port) return;
    options->tcp_port = 7700;
    options->ws_port = 7701;
    options->wss_port = 7702;
}

void CheckPairs(const std::vector<std::string>& pairs, const char* option, const char* form) {
    for (const std::string& pair : pairs) {
        const std::size_t sign = pair.find('=');
        if (sign == std::string::npos || sign == 0 || sign + 1 == pair.size()) {
            throw CLI::ValidationError(option, pair + " is not " + form);
        }
    }
}

void AddPorts(CLI::App* app, RelayOptions* options) {
    app->add_option("--host", options->host, "address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app->add_option("--tcp", options->tcp_port, "TCP port; 0 for any free one")->type_name("PORT");
    app->add_option("--ws", options->ws_port, "WebSocket port")->type_name("PORT");
    app->add_option("--wss", options->wss_port, "WebSocket port with TLS")->type_name("PORT");
    app->add_option("--proxy-port", options->proxy_port, "port of an HTTP proxy")
        ->type_name("PORT");
    app->add_option("--proxy-map", options->proxy_maps, "where the proxy finds a name")
        ->type_name("NAME:PORT=TARGET")
        ->expected(1)
        ->take_all();
}

void AddDevices(CLI::App* app, RelayOptions* options) {
    app->add_option("--folder", options->folder, "folder of key and certificate")
        ->type_name("FOLDER");
    app->add_option("--key", options->key, "private key to use instead, 64 hex digits")
        ->type_name("HEX");
    app->add_option("--status", options->status,
                    "what devices are told: 0 registered, 1 isolated, 2 rejected")
        ->type_name("N");
    app->add_option("--device", options->device_status, "another status for one device")
        ->type_name("ID=N")
        ->expected(1)
        ->take_all();
    app->add_option("--capabilities", options->capabilities, "bit mask that devices are told")
        ->type_name("N");
    app->add_option("--mtu", options->longest_packet, "longer packets to clients go in fragments")
        ->type_name("N")
        ->check(CLI::Range(17, 4072))
        ->capture_default_str();
    app->add_option("--fault", options->faults, "what goes wrong, see below")
        ->type_name("SCRIPT")
        ->expected(1)
        ->take_all();
}

void AddObservation(CLI::App* app, RelayOptions* options) {
    app->add_option("--control", options->control_port, "TCP port of the control channel")
        ->type_name("PORT");
    app->add_option("--ready-file", options->ready_file, "written once all ports are open")
        ->type_name("PATH");
    app->add_option("--record", options->record_file, "all traffic as JSON lines")
        ->type_name("PATH");
    app->add_option("--keep", options->keep, "entries kept in memory for record last")
        ->type_name("N")
        ->capture_default_str();
    app->add_flag("--strict", options->strict, "exit code 3 when a client broke the protocol");
    app->add_flag("--quiet", options->quiet, "print nothing; so it is with a command");
}

}  // namespace

std::optional<RelayOptions> ReadRelayOptions(int argc, char** argv, int* exit_code) {
    RelayOptions options;
    options.folder = DefaultFolder();
    CLI::App app(
        "Development relay: Brennix dongles with vehicles behind TCP and WebSocket ports.");
    app.set_version_flag("--version", BRENNIX_SIM_VERSION);
    app.footer(kExamples + FaultScript::Help() + kCommandsIntroduction + RelayCommands::Help() +
               kEnvironment);
    app.get_formatter()->column_width(34);
    CLI::App* const keygen =
        app.add_subcommand("keygen", "print the relay's key and the lines for config.json");
    app.add_option("--vehicle", options.vehicles, "vehicle file (JSON); again: another dongle")
        ->type_name("FILE")
        ->expected(1)
        ->take_all();
    app.add_option("--dongles", options.dongles,
                   "number of dongles; the last vehicle stands behind those that have none")
        ->type_name("N")
        ->check(CLI::Range(1, 250));
    AddPorts(&app, &options);
    AddDevices(&app, &options);
    AddObservation(&app, &options);
    keygen->fallthrough();

    char** const separator = std::find_if(
        argv, argv + argc, [](const char* word) { return std::string_view(word) == "--"; });
    if (separator != argv + argc) options.command.assign(separator + 1, argv + argc);
    try {
        app.parse(static_cast<int>(separator - argv), argv);
        options.keygen = keygen->parsed();
        CheckPairs(options.device_status, "--device", "ID=N");
        CheckPairs(options.proxy_maps, "--proxy-map", "NAME:PORT=TARGET");
        ChoosePorts(&options);
        return options;
    } catch (const CLI::Success& done) {
        *exit_code = app.exit(done);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "brennix-relay: %s (see --help)\n", error.what());
        *exit_code = 1;
    }
    return std::nullopt;
}

}  // namespace brennix
