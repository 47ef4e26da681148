#include "relay/relay_options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>

#include "protocol/fragments.h"
#include "relay/faults.h"
#include "relay/relay_commands.h"

namespace brennix {

namespace {

constexpr int kMaxDongles = 250;

constexpr std::uint16_t kUsualTcpPort = 7700;
constexpr std::uint16_t kUsualWebSocketPort = 7701;
constexpr std::uint16_t kUsualSecureWebSocketPort = 7702;

constexpr const char* kExamples = R"(
Examples:
  Create the relay's key and print the lines for the library's config.json:
    brennix-relay keygen

  A relay with one dongle and the demo car, on all three ports:
    brennix-relay --vehicle tools/simulator/vehicles/demo.json

  Three dongles, TCP only, reachable from other machines:
    brennix-relay --vehicle car.json --dongles 3 --host 0.0.0.0 --tcp 7700

  Beside a test program, on free ports; the exit code is the program's:
    brennix-relay --vehicle car.json --tcp 0 --ws 0 -- ./my-tester

  A bad network: damage the first handshake answer, send every packet in small pieces:
    brennix-relay --vehicle car.json --fault "once NHS2 flip 800; packet * split 5 10"

  At run time, over the control channel:
    brennix-relay --vehicle car.json --control 5005 &
    printf 'clients\nkill\n' | nc -N 127.0.0.1 5005

)";

constexpr const char* kCommandsIntroduction = R"(
Control commands, one line each over TCP, answered by "ok …" or "error: …". "#N " before a command
selects client N; the default is all clients. The commands of brennix-sim for a dongle and its
vehicle (unplug, replug, next, behaviour, unit, data …) work too, with "@N " for dongle N:
)";

constexpr const char* kEnvironment = R"(
The command gets BRENNIX_RELAY_CONTROL (address of the control channel), BRENNIX_RELAY_TCP,
BRENNIX_RELAY_WS, BRENNIX_RELAY_WSS and BRENNIX_RELAY_PROXY (values for serverAddress,
websocketAddress and proxyAddress), BRENNIX_RELAY_PUBLIC_KEY (serverPublicKey) and
BRENNIX_RELAY_CERTIFICATE (file of the certificate for wss).

Exit codes: the command's own, or 0 without a command. 1: invalid options, vehicle file or set-up.
3: with --strict, a client broke the protocol, whatever the command's own is.
)";

std::string DefaultFolder() {
    if (const char* base = std::getenv("XDG_CONFIG_HOME"); base != nullptr && *base != '\0') {
        return std::string(base) + "/brennix-relay";
    }
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/.config/brennix-relay";
}

// Without any port option: all ports, with their usual numbers.
void ChoosePorts(RelayOptions* options) {
    if (options->tcp_port || options->ws_port || options->wss_port) return;
    options->tcp_port = kUsualTcpPort;
    options->ws_port = kUsualWebSocketPort;
    options->wss_port = kUsualSecureWebSocketPort;
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
    app->add_option("--tcp", options->tcp_port, "TCP port; 0: any free one")->type_name("PORT");
    app->add_option("--ws", options->ws_port, "WebSocket port")->type_name("PORT");
    app->add_option("--wss", options->wss_port, "WebSocket port with TLS")->type_name("PORT");
    app->add_option("--proxy-port", options->proxy_port, "port of an HTTP proxy")
        ->type_name("PORT");
    app->add_option("--proxy-map", options->proxy_maps, "target for connections to a name")
        ->type_name("NAME:PORT=TARGET")
        ->expected(1)
        ->take_all();
}

void AddDevices(CLI::App* app, RelayOptions* options) {
    app->add_option("--folder", options->folder, "folder with key and certificate")
        ->type_name("FOLDER");
    app->add_option("--key", options->key, "private key to use instead, 64 hex digits")
        ->type_name("HEX");
    app->add_option("--status", options->status,
                    "status sent to devices: 0 registered, 1 isolated, 2 rejected")
        ->type_name("N");
    app->add_option("--device", options->device_status, "another status for one device")
        ->type_name("ID=N")
        ->expected(1)
        ->take_all();
    app->add_option("--capabilities", options->capabilities, "bit mask sent to devices")
        ->type_name("N");
    app->add_option("--mtu", options->longest_packet,
                    "largest packet to clients; longer ones are fragmented")
        ->type_name("N")
        ->check(CLI::Range(kFragmentHeaderSize + 1, kMaxPlainPacket))
        ->capture_default_str();
    app->add_option("--fault", options->faults, "intentional faults, see below")
        ->type_name("SCRIPT")
        ->expected(1)
        ->take_all();
}

void AddObservation(CLI::App* app, RelayOptions* options) {
    AddControlOptions(app, options, "written once all ports are open",
                      "exit code 3 if a client broke the protocol");
    app->add_flag("--quiet", options->quiet, "print nothing; implied by a command");
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
    AddVehicleOptions(&app, &options, kMaxDongles);
    AddPorts(&app, &options);
    AddDevices(&app, &options);
    AddObservation(&app, &options);
    keygen->fallthrough();

    const auto check = [&options] {
        CheckPairs(options.device_status, "--device", "ID=N");
        CheckPairs(options.proxy_maps, "--proxy-map", "NAME:PORT=TARGET");
    };
    if (!ParseCommandLine(&app, argc, argv, "brennix-relay", &options, check, exit_code)) {
        return std::nullopt;
    }
    options.keygen = keygen->parsed();
    ChoosePorts(&options);
    return options;
}

}  // namespace brennix
