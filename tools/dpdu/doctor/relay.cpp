#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>

#include "doctor/surroundings.h"
#include "transport/cloud/server_address.h"
#include "transport/cloud/tcp_socket.h"
#include "transport/cloud/websocket_client.h"
#include "transport/cloud/websocket_url.h"

namespace dpdu {
namespace {

constexpr char kRelaySubject[] = "relay";
// TLS failed; some systems report a bad certificate this way.
constexpr std::uint32_t kErrorSecureChannel = 12157;
constexpr std::chrono::seconds kRelayLimit{10};
constexpr std::chrono::seconds kRelayAbortLimit{2};

Finding WrongRelay(const std::string& text, const std::string& advice) {
    return {Verdict::kWrong, kRelaySubject, text, advice};
}

// One attempt, on a separate thread because a name look-up cannot be interrupted. A thread that
// does not end in time is abandoned together with the objects it uses; it ends with the program.
class RelayAttempt {
public:
    virtual ~RelayAttempt() = default;
    virtual Finding Run() = 0;
    virtual void Abort() = 0;
};

Finding RunBounded(const std::shared_ptr<RelayAttempt>& attempt) {
    auto promise = std::make_shared<std::promise<Finding>>();
    std::future<Finding> found = promise->get_future();
    std::thread thread([attempt, promise] { promise->set_value(attempt->Run()); });
    if (found.wait_for(kRelayLimit) == std::future_status::ready) {
        thread.join();  // its objects are released before the program ends
        return found.get();
    }
    attempt->Abort();
    if (found.wait_for(kRelayAbortLimit) == std::future_status::ready) {
        thread.join();
    } else {
        thread.detach();
    }
    return WrongRelay("no answer within " + std::to_string(kRelayLimit.count()) + " seconds",
                      "check whether a firewall blocks the connection");
}

// ---------------------------------------------------------------- TCP

class TcpAttempt : public RelayAttempt {
public:
    explicit TcpAttempt(const tarvik::ServerAddress& address)
        : address_(address),
          name_(std::string(address.host) + ":" + std::to_string(address.port)) {}

    Finding Run() override {
        tarvik::StartNetwork();
        const Finding finding = Connect();
        tarvik::EndNetwork();
        return finding;
    }
    void Abort() override { aborted_ = true; }

private:
    Finding Connect() {
        tarvik::TcpAddresses* addresses = nullptr;
        const std::string port = std::to_string(address_.port);
        if (tarvik::ResolveTcp(address_.host, port.c_str(), &addresses) != 0) {
            return WrongRelay("the name " + std::string(address_.host) + " is not known",
                              "correct serverAddress, or check the network");
        }
        tarvik::TcpSocket* socket = tarvik::ConnectTcp(*addresses, aborted_);
        tarvik::FreeTcpAddresses(addresses);
        if (socket == nullptr) {
            return WrongRelay(name_ + " takes no connection",
                              "check firewalls, and that the relay is running there");
        }
        tarvik::AbortTcp(socket);
        tarvik::CloseTcp(socket);
        return {Verdict::kFine, kRelaySubject, name_ + " takes connections"};
    }

    const tarvik::ServerAddress address_;
    const std::string name_;
    std::atomic<bool> aborted_{false};
};

Finding CheckTcp(const tarvik::Config& config) {
    tarvik::ServerAddress address = {};
    if (config.serverAddress[0] == '\0') {
        return WrongRelay("serverAddress is empty", "set it to the relay's HOST:PORT");
    }
    if (!tarvik::ParseServerAddress(config.serverAddress, &address)) {
        return WrongRelay("serverAddress is not HOST:PORT", "correct it");
    }
    return RunBounded(std::make_shared<TcpAttempt>(address));
}

// ---------------------------------------------------------------- WebSocket

class WebSocketAttempt : public RelayAttempt {
public:
    WebSocketAttempt(const tarvik::Config& config, const tarvik::WebSocketUrl& url)
        : config_(config), url_(url), client_(tarvik::CreateWebSocketClient()) {}
    ~WebSocketAttempt() override { tarvik::CloseWebSocket(client_, nullptr); }

    Finding Run() override {
        if (tarvik::ConnectWebSocket(client_, Target(), {KeepFailure, this})) {
            return {Verdict::kFine, kRelaySubject, Name() + " opens a WebSocket"};
        }
        if (failed_step_ < tarvik::WebSocketStep::kSend) {
            return WrongRelay("the address cannot be used", "correct websocketAddress");
        }
        if (failed_step_ == tarvik::WebSocketStep::kSend) return Explain(error_);
        return WrongRelay(Name() + " answers, but opens no WebSocket",
                          "correct the path in websocketAddress" + OrTheProxy());
    }
    void Abort() override { tarvik::AbortWebSocket(client_); }

private:
    std::string Name() const { return config_.websocketAddress; }
    std::string OrTheProxy() const { return config_.useProxy ? ", or the proxy's settings" : ""; }

    tarvik::WebSocketTarget Target() const {
        return {
            .server = url_.server,
            .port = url_.port,
            .endpoint = url_.endpoint,
            .secure = url_.secure,
            .check_certificate = !config_.disableCertValidation,
            .use_proxy = config_.useProxy,
            .proxy = config_.proxyAddress,
            .user_agent = "dpdu doctor",
        };
    }
    static void KeepFailure(void* context, tarvik::WebSocketStep step, std::uint32_t error) {
        if (error == 0) return;
        auto* const self = static_cast<WebSocketAttempt*>(context);
        self->failed_step_ = step;
        self->error_ = error;
    }

    Finding Explain(std::uint32_t error) const {
        switch (error) {
            case tarvik::kErrorNameNotResolved:
                return WrongRelay("the name " + std::string(url_.server) + " is not known",
                                  "correct websocketAddress" + OrTheProxy());
            case tarvik::kErrorSecureFailure:
            case kErrorSecureChannel:
                return WrongRelay("the certificate of " + Name() + " is not accepted",
                                  "add it to the system's store, or check the clock");
            default:
                return WrongRelay(
                    Name() + " takes no connection (error " + std::to_string(error) + ")",
                    "check firewalls, and that the relay is running there" + OrTheProxy());
        }
    }

    const tarvik::Config config_;
    const tarvik::WebSocketUrl url_;
    tarvik::WebSocketClient* const client_;
    tarvik::WebSocketStep failed_step_{};
    std::uint32_t error_ = 0;
};

Findings CheckWebSocket(const tarvik::Config& config) {
    tarvik::WebSocketUrl url = {};
    if (!tarvik::ParseWebSocketUrl(config.websocketAddress, &url)) {
        return {WrongRelay("websocketAddress is not ws://HOST:PORT/PATH or wss://…", "correct it")};
    }
    Findings findings = {RunBounded(std::make_shared<WebSocketAttempt>(config, url))};
    if (url.secure && config.disableCertValidation) {
        findings.push_back({Verdict::kNote, kRelaySubject, "its certificate is not checked",
                            "set disableCertValidation to false once the system trusts it"});
    }
    return findings;
}

}  // namespace

Findings CheckRelay(const tarvik::Config& config) {
    if (!config.useCloud) return {};
    return config.useWebsocket ? CheckWebSocket(config) : Findings{CheckTcp(config)};
}

}  // namespace dpdu
