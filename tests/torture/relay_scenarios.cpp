// With a dongle behind a relay.

#include "conformance/framework/relay.h"
#include "conformance/framework/vehicle.h"
#include "torture/modes.h"
#include "torture/session.h"

namespace torture {
namespace {

using conformance::Relay;
using conformance::Settings;

Settings OverTcp() {
    Settings settings = {
        .enableDebugLogFile = false, .useCloud = true, .disableCertValidation = true};
    settings.serverPublicKey = Relay::PublicKey();
    settings.serverAddress = Relay::TcpAddress();
    return settings;
}

Settings OverWebSocket() {
    Settings settings = OverTcp();
    settings.useWebsocket = true;
    settings.websocketAddress = Relay::WebSocketAddress();
    return settings;
}

Settings OverSecureWebSocket() {
    Settings settings = OverWebSocket();
    settings.websocketAddress = Relay::SecureWebSocketAddress();
    return settings;
}

// Connects, and finds the dongle.
template <Settings (*settings)()>
class Connect : public Session {
public:
    Connect() : Session(settings()) {}

    void SetUp() override {
        relay_.Reset();
        Store();
    }
    bool Run() override {
        const bool found = Construct() && FindModule();
        return Destruct() && found;
    }

    // An NHS2 with the relay's welcome, a sealed DEVA, and most of a login.
    long PeerBytes() const override { return 104 + 40 + 64; }
    void ClosePeerAfter(long bytes) override {
        relay_.Fault("once bytes " + std::to_string(bytes) + " cut");
    }

private:
    Relay relay_;
};

// The answer does not fit into one packet of the relay.
class LongAnswer : public LinkScenario {
public:
    LongAnswer() : LinkScenario(OverTcp()) {}

    bool Run() override {
        Answers answers;
        return Await(Start(PDU_COPT_SENDRECV, request_, &control_), &answers) &&
               answers.results == 1;
    }

protected:
    void ResetDevice() override {
        constexpr std::size_t kLongest = 4096 - 20 - 3;
        relay_.Reset();
        relay_.Command("data engine 2100 " + std::string(2 * kLongest, '7'));
    }

private:
    Relay relay_;
    const std::vector<UNUM8> request_ = {0x22, 0x21, 0x00};
    conformance::ControlData control_{conformance::PositiveRead()};
};

const NamedScenario kScenarios[] = {
    {"CloudOverTcp", Make<Connect<OverTcp>>, true},
    {"CloudOverWebSocket", Make<Connect<OverWebSocket>>, true},
    {"CloudOverSecureWebSocket", Make<Connect<OverSecureWebSocket>>},
    {"LongAnswerOverTcp", Make<LongAnswer>},
};

[[maybe_unused]] const bool added = AddCases(kScenarios);

}  // namespace
}  // namespace torture
