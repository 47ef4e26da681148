#include "doctor/relay_link.h"

#include <algorithm>
#include <utility>

#include "platform/tick.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/server_address.h"
#include "transport/cloud/tcp_lookup.h"
#include "transport/cloud/tcp_socket.h"
#include "transport/cloud/websocket_client.h"
#include "transport/cloud/websocket_receive.h"
#include "transport/cloud/websocket_url.h"

namespace dpdu {
namespace {

// TLS failed; some systems report a bad certificate this way.
constexpr std::uint32_t kErrorSecureChannel = 12157;

// The system's network while it lives.
class Network {
public:
    Network() { tarvik::StartNetwork(); }
    ~Network() { tarvik::EndNetwork(); }
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;
};

// ---------------------------------------------------------------- TCP

struct TcpResult {
    bool is_name_known = false;
    tarvik::TcpSocket* socket = nullptr;  // null: no connection
};

TcpResult ConnectToHost(const std::string& host, const std::string& port,
                        const std::atomic<bool>& stop) {
    TcpResult result;
    tarvik::TcpAddresses* addresses = nullptr;
    if (tarvik::LookUpTcp(host.c_str(), port.c_str(), stop, &addresses) != 0) return result;
    result.is_name_known = true;
    result.socket = tarvik::ConnectTcp(*addresses, stop);
    tarvik::FreeTcpAddresses(addresses);
    return result;
}

class TcpLink : public RelayLink {
public:
    explicit TcpLink(tarvik::TcpSocket* socket) : socket_(socket) {}
    ~TcpLink() override { tarvik::CloseTcp(socket_); }
    TcpLink(const TcpLink&) = delete;
    TcpLink& operator=(const TcpLink&) = delete;

    bool Receive(tarvik::PacketPtr* packet) override {
        switch (tarvik::WaitForTcpData(socket_, tarvik::GetCloudLimits().receive_wait_ms)) {
            case tarvik::TcpWait::kFailed:
                return false;
            case tarvik::TcpWait::kTimeout:
                return true;
            case tarvik::TcpWait::kReadable:
                break;
        }
        std::uint8_t header[tarvik::MIN_PKT_SIZE];
        const int peeked = tarvik::PeekTcp(socket_, header, sizeof header);
        if (peeked < 1) return false;
        if (peeked < static_cast<int>(sizeof header)) return WaitForMore();
        const std::uint32_t length = tarvik::LoadU32(header + 4);
        if (length < tarvik::MIN_PKT_SIZE || length > tarvik::MAX_PKT_SIZE) return false;
        tarvik::PacketPtr received = tarvik::MakePacket(0, length);
        if (!received) return false;
        const int read = tarvik::ReadTcp(socket_, received->Bytes(), length);
        if (read != static_cast<int>(length)) return false;
        *packet = std::move(received);
        return true;
    }
    bool Send(const tarvik::Packet& packet) override {
        return tarvik::SendTcp(socket_, packet.Bytes(), packet.length);
    }
    void Abort() override { tarvik::AbortTcp(socket_); }

private:
    bool WaitForMore() const {
        if (tarvik::TcpPeerEnded(socket_)) return false;
        tarvik::SleepMs(tarvik::GetCloudLimits().incomplete_pause_ms);
        return true;
    }

    const Network network_;
    tarvik::TcpSocket* const socket_;
};

RelayOpening OpenOverTcp(const tarvik::Config& config, CheckRun* run) {
    const std::string text = config.serverAddress;
    RelayOpening opening{nullptr, text};
    if (text.empty()) {
        run->Add(Found(Diagnosis::kRelayAddressEmpty));
        return opening;
    }
    tarvik::ServerAddress address = {};
    if (!tarvik::ParseServerAddress(text.c_str(), &address)) {
        const bool has_port = text.find(':') != text.npos;
        run->Add(Found(has_port ? Diagnosis::kRelayAddress : Diagnosis::kRelayAddressNoPort,
                       {{"address", text}}));
        return opening;
    }
    const Network network;
    const TcpResult result = ConnectToHost(address.host, std::to_string(address.port), run->Stop());
    if (result.socket != nullptr) {
        opening.link = std::make_unique<TcpLink>(result.socket);
    } else if (run->Stop()) {
        return opening;
    } else if (!result.is_name_known) {
        run->Add(Found(Diagnosis::kRelayNameUnknown,
                       {{"host", address.host}, {"key", "serverAddress"}}));
    } else {
        run->Add(Found(Diagnosis::kRelayRefused, {{"relay", text}}));
    }
    return opening;
}

// ---------------------------------------------------------------- WebSocket

class WebSocketLink : public RelayLink {
public:
    WebSocketLink() : client_(tarvik::CreateWebSocketClient()) {}
    ~WebSocketLink() override { tarvik::CloseWebSocket(client_, nullptr); }
    WebSocketLink(const WebSocketLink&) = delete;
    WebSocketLink& operator=(const WebSocketLink&) = delete;

    bool Connect(const tarvik::WebSocketTarget& target) {
        return tarvik::ConnectWebSocket(client_, target, {KeepFailure, this});
    }
    tarvik::WebSocketStep FailedStep() const { return failed_step_; }
    std::uint32_t Error() const { return error_; }

    bool Receive(tarvik::PacketPtr* packet) override {
        return tarvik::ReceiveWebSocketPacket({ReceiveSome, client_}, packet);
    }
    bool Send(const tarvik::Packet& packet) override {
        return tarvik::SendToWebSocket(client_, packet.Bytes(), packet.length) == 0;
    }
    void Abort() override { tarvik::AbortWebSocket(client_); }

private:
    static void KeepFailure(void* context, tarvik::WebSocketStep step, std::uint32_t error) {
        if (error == 0) return;
        auto* const self = static_cast<WebSocketLink*>(context);
        self->failed_step_ = step;
        self->error_ = error;
    }
    static std::uint32_t ReceiveSome(void* client, void* data, std::uint32_t size,
                                     std::uint32_t* bytes, tarvik::MessageKind* kind) {
        return tarvik::ReceiveFromWebSocket(static_cast<tarvik::WebSocketClient*>(client), data,
                                            size, bytes, kind);
    }

    tarvik::WebSocketClient* const client_;
    tarvik::WebSocketStep failed_step_{};
    std::uint32_t error_ = 0;
};

tarvik::WebSocketTarget TargetOf(const tarvik::Config& config, const tarvik::WebSocketUrl& url) {
    return {
        .server = url.server,
        .port = url.port,
        .endpoint = url.endpoint,
        .secure = url.secure,
        .check_certificate = !config.disableCertValidation,
        .use_proxy = config.useProxy,
        .proxy = config.proxyAddress,
        .user_agent = "dpdu doctor",
    };
}

// "HOST:PORT", each with or without "http://" and a path.
std::pair<std::string, std::string> ProxyHost(std::string text) {
    constexpr char kScheme[] = "http://";
    if (text.starts_with(kScheme)) text.erase(0, sizeof kScheme - 1);
    text.resize(std::min(text.find('/'), text.size()));
    const std::size_t colon = text.rfind(':');
    if (colon == text.npos) return {text, "80"};
    return {text.substr(0, colon), text.substr(colon + 1)};
}

// Whether the proxy itself can be reached: the failed connection does not say so.
Finding ProxyFinding(const tarvik::Config& config, std::uint32_t error, CheckRun* run) {
    const auto [host, port] = ProxyHost(config.proxyAddress);
    const Network network;
    const TcpResult result = ConnectToHost(host, port, run->Stop());
    if (!result.is_name_known) return Found(Diagnosis::kRelayProxyName, {{"host", host}});
    if (result.socket == nullptr) {
        return Found(Diagnosis::kRelayProxyRefused, {{"proxy", config.proxyAddress}});
    }
    tarvik::CloseTcp(result.socket);
    return Found(Diagnosis::kRelayProxyNoTunnel, {{"proxy", config.proxyAddress},
                                                  {"relay", config.websocketAddress},
                                                  {"error", std::to_string(error)}});
}

Finding SendFinding(const tarvik::Config& config, const tarvik::WebSocketUrl& url,
                    std::uint32_t error, CheckRun* run) {
    const std::string relay = config.websocketAddress;
    if (error == tarvik::kErrorSecureFailure || error == kErrorSecureChannel) {
        return Found(Diagnosis::kRelayCertificate, {{"relay", relay}});
    }
    if (config.useProxy) return ProxyFinding(config, error, run);
    if (error == tarvik::kErrorNameNotResolved) {
        return Found(Diagnosis::kRelayNameUnknown,
                     {{"host", url.server}, {"key", "websocketAddress"}});
    }
    return Found(Diagnosis::kRelayRefused, {{"relay", relay}});
}

Finding StepFinding(const tarvik::Config& config, const tarvik::WebSocketUrl& url,
                    const WebSocketLink& link, CheckRun* run) {
    if (link.FailedStep() < tarvik::WebSocketStep::kSend) {
        return Found(Diagnosis::kRelayUrl, {{"address", config.websocketAddress}});
    }
    if (link.FailedStep() == tarvik::WebSocketStep::kSend) {
        return SendFinding(config, url, link.Error(), run);
    }
    return Found(Diagnosis::kRelayNoWebSocket, {{"relay", config.websocketAddress}});
}

RelayOpening OpenOverWebSocket(const tarvik::Config& config, CheckRun* run) {
    RelayOpening opening{nullptr, config.websocketAddress};
    tarvik::WebSocketUrl url = {};
    if (!tarvik::ParseWebSocketUrl(config.websocketAddress, &url)) {
        run->Add(Found(Diagnosis::kRelayUrl, {{"address", config.websocketAddress}}));
        return opening;
    }
    if (static_cast<std::uint16_t>(url.port) == 0) {
        run->Add(Found(Diagnosis::kRelayUrlPort, {{"address", config.websocketAddress}}));
        return opening;
    }
    auto link = std::make_unique<WebSocketLink>();
    run->OnStop([connecting = link.get()] { connecting->Abort(); });
    const bool is_connected = link->Connect(TargetOf(config, url));
    run->OnStop(nullptr);
    if (run->Stop()) return opening;
    if (!is_connected) {
        run->Add(StepFinding(config, url, *link, run));
        return opening;
    }
    if (url.secure && config.disableCertValidation) {
        run->Add(Found(Diagnosis::kRelayCertificateUnchecked, {{"relay", opening.relay}}));
    }
    opening.link = std::move(link);
    return opening;
}

}  // namespace

RelayOpening OpenRelay(const tarvik::Config& config, CheckRun* run) {
    return config.useWebsocket ? OpenOverWebSocket(config, run) : OpenOverTcp(config, run);
}

}  // namespace dpdu
