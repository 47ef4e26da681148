#include "relay/relay_run.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <stdexcept>

#include "process/ready_file.h"
#include "relay/key_file.h"
#include "vehicle_file/vehicle_file.h"

namespace brennix {

namespace {

constexpr std::chrono::seconds kCountsInterval{1};

std::string CertificateFile(const RelayOptions& options) {
    return options.folder + "/certificate.pem";
}

std::string CertificateKeyFile(const RelayOptions& options) {
    return options.folder + "/certificate_key.pem";
}

KeyPair FindKey(const RelayOptions& options) {
    return options.key.empty() ? LoadOrMakeKey(options.folder) : ReadKey(options.key, "--key");
}

std::uint32_t ReadStatus(const std::string& text) {
    std::size_t used = 0;
    const unsigned long number = std::stoul(text, &used);
    if (used != text.size() || number > UINT32_MAX) {
        throw std::runtime_error("--device: " + text + " is no status");
    }
    return static_cast<std::uint32_t>(number);
}

RelaySettings MakeSettings(const RelayOptions& options) {
    RelaySettings settings;
    settings.key = FindKey(options);
    settings.status = options.status;
    settings.capabilities = options.capabilities;
    settings.longest_packet = options.longest_packet;
    for (const std::string& pair : options.device_status) {
        const std::size_t sign = pair.find('=');
        settings.device_status[pair.substr(0, sign)] = ReadStatus(pair.substr(sign + 1));
    }
    return settings;
}

std::string ClockTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    ::localtime_r(&now, &local);
    char text[16];
    std::strftime(text, sizeof text, "%H:%M:%S", &local);
    return text;
}

// The address for programs on this machine if the relay listens on all addresses.
std::string Reachable(const std::string& address) {
    return address.starts_with("0.0.0.0:") ? "127.0.0.1" + address.substr(7) : address;
}

void PrintConfigLines(const std::string& public_key, const std::map<std::string, std::string>& at) {
    const auto line = [](const char* key, const std::string& value) {
        std::printf("    \"%s\": %s,\n", key, value.c_str());
    };
    const auto quoted = [](const std::string& text) { return "\"" + text + "\""; };
    line("useCloud", "true");
    line("serverPublicKey", quoted(public_key));
    if (at.contains("BRENNIX_RELAY_TCP")) {
        line("serverAddress", quoted(at.at("BRENNIX_RELAY_TCP")));
    }
    const bool secure = at.contains("BRENNIX_RELAY_WSS");
    if (secure || at.contains("BRENNIX_RELAY_WS")) {
        std::printf("  and, to go over WebSocket instead of TCP:\n");
        line("useWebsocket", "true");
        line("websocketAddress", quoted(at.at(secure ? "BRENNIX_RELAY_WSS" : "BRENNIX_RELAY_WS")));
        // The relay's certificate is self-signed.
        if (secure) line("disableCertValidation", "true");
    }
}

}  // namespace

RelayRun::RelayRun(const RelayOptions& options)
    : options_(options),
      prints_(!options.quiet && options.command.empty()),
      shows_counts_(prints_ && ::isatty(STDOUT_FILENO) != 0),
      relay_(std::make_unique<Relay>(&loop_, MakeSettings(options), options.keep,
                                     [this](const std::string& line) { Print(line); })),
      commands_(std::make_unique<RelayCommands>(relay_.get())) {
    if (!options_.record_file.empty()) relay_->Log().OpenFile(options_.record_file);
    for (const std::string& script : options_.faults)
        relay_->Faults().Add(script);
    AddDongles();
    OpenPorts();
    control_ = std::make_unique<ControlServer>(
        &loop_, &relay_->Log(), [this](std::string_view line) { return commands_->Run(line); },
        options_.control_port);
}

RelayRun::~RelayRun() { relay_->Log().FlushFile(); }

void RelayRun::AddDongles() {
    const std::size_t count = options_.DongleCount();
    if (count != 0 && options_.vehicles.empty()) {
        throw std::runtime_error("--dongles: a --vehicle is missing");
    }
    for (std::size_t i = 0; i < count; ++i) {
        relay_->AddDongle(LoadVehicleFile(options_.vehicles[options_.VehicleOf(i)]));
    }
}

void RelayRun::OpenPorts() {
    if (options_.tcp_port) relay_->Listen(Carrier::kTcp, options_.host, *options_.tcp_port);
    if (options_.ws_port) relay_->Listen(Carrier::kWebSocket, options_.host, *options_.ws_port);
    if (options_.wss_port) {
        std::filesystem::create_directories(options_.folder);
        EnsureCertificate(CertificateFile(options_), CertificateKeyFile(options_), options_.host);
        relay_->Listen(Carrier::kSecureWebSocket, options_.host, *options_.wss_port,
                       LoadTlsContext(CertificateFile(options_), CertificateKeyFile(options_)));
    }
    if (!options_.proxy_port) return;
    relay_->ListenAsProxy(options_.host, *options_.proxy_port);
    for (const std::string& pair : options_.proxy_maps) {
        const std::size_t sign = pair.find('=');
        relay_->Proxy()->Map(pair.substr(0, sign), pair.substr(sign + 1));
    }
}

std::map<std::string, std::string> RelayRun::Places() const {
    std::map<std::string, std::string> places = {
        {"BRENNIX_RELAY_CONTROL", control_->Address()},
        {"BRENNIX_RELAY_PUBLIC_KEY", ToLowerHex(relay_->Settings().key.point)}};
    if (Listener* port = relay_->Port(Carrier::kTcp)) {
        places["BRENNIX_RELAY_TCP"] = Reachable(port->Address());
    }
    if (Listener* port = relay_->Port(Carrier::kWebSocket)) {
        places["BRENNIX_RELAY_WS"] = "ws://" + Reachable(port->Address()) + "/dongles";
    }
    if (Listener* port = relay_->Port(Carrier::kSecureWebSocket)) {
        places["BRENNIX_RELAY_WSS"] = "wss://" + Reachable(port->Address()) + "/dongles";
        places["BRENNIX_RELAY_CERTIFICATE"] =
            std::filesystem::absolute(CertificateFile(options_)).string();
    }
    if (ConnectProxy* proxy = relay_->Proxy()) {
        places["BRENNIX_RELAY_PROXY"] = Reachable(proxy->Port().Address());
    }
    return places;
}

void RelayRun::Announce() {
    if (!options_.ready_file.empty()) WriteReadyFile(options_.ready_file, PlacesText(Places()));
    if (!prints_) return;
    std::printf("control channel at %s; lines for the library's config.json:\n",
                control_->Address().c_str());
    PrintConfigLines(ToLowerHex(relay_->Settings().key.point), Places());
    std::fflush(stdout);
    if (shows_counts_) ShowCounts();
}

void RelayRun::Print(const std::string& line) {
    if (!prints_) return;
    std::printf("%s%s %s\n", shows_counts_ ? "\r\033[K" : "", ClockTime().c_str(), line.c_str());
    std::fflush(stdout);
}

void RelayRun::ShowCounts() {
    Simulator& dongles = relay_->Dongles();
    std::size_t here = 0;
    for (std::size_t i = 0; i < dongles.Count(); ++i)
        here += dongles.At(i).IsPowered() ? 1 : 0;
    const Record& record = relay_->Log();
    std::printf("\r\033[K%zu clients, %zu dongles, %ju packets in, %ju out",
                relay_->Clients().size(), here,
                static_cast<std::uintmax_t>(record.Count({{}, Direction::kIn, {}})),
                static_cast<std::uintmax_t>(record.Count({{}, Direction::kOut, {}})));
    std::fflush(stdout);
    loop_.After(kCountsInterval, [this] { ShowCounts(); });
}

int RelayRun::Run() {
    Announce();
    const int code = program_.Run(options_.command, Places());
    if (shows_counts_) std::printf("\n");
    // A command that fails because of a violation would hide it.
    return options_.strict && relay_->Violations() != 0 ? kViolationExitCode : code;
}

void PrintKeys(const RelayOptions& options) {
    const KeyPair pair = FindKey(options);
    const auto at = [&](const std::optional<std::uint16_t>& port) {
        return Reachable(options.host + ":" + std::to_string(*port));
    };
    std::map<std::string, std::string> places;
    if (options.tcp_port) places["BRENNIX_RELAY_TCP"] = at(options.tcp_port);
    if (options.ws_port) places["BRENNIX_RELAY_WS"] = "ws://" + at(options.ws_port) + "/dongles";
    if (options.wss_port)
        places["BRENNIX_RELAY_WSS"] = "wss://" + at(options.wss_port) + "/dongles";
    if (options.key.empty()) {
        std::printf("The relay's key, in %s, which no one else may read:\n",
                    KeyFile(options.folder).c_str());
    }
    std::printf("  private key %s\n  public key  %s\n", ToLowerHex(pair.secret).c_str(),
                ToLowerHex(pair.point).c_str());
    std::printf("Lines for the library's config.json:\n");
    PrintConfigLines(ToLowerHex(pair.point), places);
}

}  // namespace brennix
