// The doctor with a relay.

#include "conformance/framework/rounds.h"
#include "conformance/framework/system.h"
#include "doctor_run.h"

namespace {

// No name server is asked for a part of a name that is longer than 63 characters.
const std::string kUnknownHost = std::string(64, 'x') + ".invalid";
constexpr char kNobody[] = "127.0.0.1:1";

class DpduDoctorRelay : public DoctorTest {
protected:
    void SetUp() override {
        DoctorTest::SetUp();
        relay_.Reset();
    }
    void TearDown() override {
        relay_.Reset();
        DoctorTest::TearDown();
    }

    static nlohmann::ordered_json TcpConfig() {
        nlohmann::ordered_json config = SerialConfig();
        config["useSerial"] = false;
        config["useCloud"] = true;
        return config;
    }
    static nlohmann::ordered_json TcpConfig(const std::string& key, const std::string& value) {
        nlohmann::ordered_json config = TcpConfig();
        config[key] = value;
        return config;
    }
    static nlohmann::ordered_json WebSocketConfig(
        const std::string& address = conformance::Relay::WebSocketAddress()) {
        nlohmann::ordered_json config = TcpConfig();
        config["useWebsocket"] = true;
        config["websocketAddress"] = address;
        return config;
    }
    static nlohmann::ordered_json ProxyConfig(const std::string& proxy) {
        nlohmann::ordered_json config = WebSocketConfig();
        config["useProxy"] = true;
        config["proxyAddress"] = proxy;
        return config;
    }

    conformance::Relay relay_;
};

TEST_F(DpduDoctorRelay, ThatAcceptsTheDeviceIsFineAndItsDonglesAreNamed) {
    for (const auto& config : {TcpConfig(), WebSocketConfig()}) {
        const Examined examined = RunWith(config);
        ExpectFine(examined, "relay", "accepts this device: status 0, OK (registered)");
        ExpectFine(examined, "relay", "dongles: 'Brennix demo' with mac 02:42:52:4E:58:01");
    }
    EXPECT_EQ(relay_.Violations(), 0u) << relay_.Command("violations");
}

TEST_F(DpduDoctorRelay, WithoutADongleIsNoted) {
    relay_.Unplug();
    ExpectNote(RunWith(TcpConfig()), "relay-no-dongle", "no dongle has logged in");
}

TEST_F(DpduDoctorRelay, ThatIsolatesOrRejectsTheDeviceIsReportedWithItsStatus) {
    relay_.Command("status 1");
    ExpectNote(RunWith(TcpConfig()), "relay-isolated", "status 1, ISOLATED (unknown device)");
    relay_.Command("status 2");
    ExpectWrong(RunWith(TcpConfig()), "relay-rejected", "status 2, REJECTED (blacklisted)");
}

// The library makes one and writes it; the doctor does neither.
TEST_F(DpduDoctorRelay, LearnsOfNoDeviceWithoutAKey) {
    const std::string text = TcpConfig("devicePrivateKey", "").dump();
    WriteConfig(text);
    ExpectFine(Run(), "relay-reached", "completes the key exchange");
    EXPECT_EQ(relay_.Count("in NHS1"), 1u);
    EXPECT_EQ(relay_.Count("in DEVI"), 0u);
    EXPECT_EQ(ReadWholeFile(TextOf(ConfigPath())), text);

    WriteConfig(TcpConfig("devicePrivateKey", std::string(64, 'f')).dump());
    EXPECT_TRUE(Run().Has("relay-reached"));
    EXPECT_EQ(relay_.Count("in DEVI"), 0u);
}

TEST_F(DpduDoctorRelay, IsConnectedWithoutAKeyExchangeIfAKeyIsWrong) {
    for (const char* key : {"serverPublicKey", "devicePrivateKey"}) {
        const Examined examined = RunWith(TcpConfig(key, "11"));
        EXPECT_TRUE(examined.Has("relay-no-keys", "takes connections")) << examined.output;
    }
    EXPECT_EQ(relay_.Count("in NHS1"), 0u);
}

// The generator of the curve: a valid key, but not this relay's.
TEST_F(DpduDoctorRelay, ThatHasAnotherKeyDoesNotAnswerTheKeyExchange) {
    ExpectWrong(
        RunWith(TcpConfig("serverPublicKey",
                          "046B17D1F2E12C4247F8BCE6E563A440F277037D812DEB33A0F4A13945D898C296"
                          "4FE342E2FE1A7F9B8EE7EB4A7C0F9E162BCE33576B315ECECBB6406837BF51F5")),
        "relay-no-handshake", "does not answer the key exchange");
}

TEST_F(DpduDoctorRelay, ThatDoesNotProveItsKeyIsWrong) {
    relay_.Fault("NHS2 flip 800");
    ExpectWrong(RunWith(TcpConfig()), "relay-wrong-key", "does not prove");
}

TEST_F(DpduDoctorRelay, ThatDoesNotAnswerTheIdentificationIsWrong) {
    relay_.Fault("DEVA drop");
    ExpectWrong(RunWith(TcpConfig()), "relay-no-identification");
}

TEST_F(DpduDoctorRelay, ThatEndsTheConnectionIsWrong) {
    for (const char* fault : {"accept refuse", "in NHS1 reset"}) {
        relay_.Command("fault clear");
        relay_.Fault(fault);
        ExpectWrong(RunWith(TcpConfig()), "relay-no-handshake");
    }
}

TEST_F(DpduDoctorRelay, ThatRefusesConnectionsIsWrong) {
    relay_.Listen(false);
    ExpectWrong(RunWith(TcpConfig()), "relay-refused", "takes no connection");
    ExpectWrong(RunWith(WebSocketConfig()), "relay-refused", "takes no connection");
}

TEST_F(DpduDoctorRelay, ThatNeverAnswersIsGivenUpAfterTenSeconds) {
    relay_.Fault("accept deaf");
    ExpectWrong(RunWith(WebSocketConfig()), "relay-late", "no answer within 10 seconds");
    const conformance::SilentPort nobody;
    ExpectWrong(RunWith(TcpConfig("serverAddress", nobody.Address())), "relay-late");
}

TEST_F(DpduDoctorRelay, WithAnInvalidAddressIsWrong) {
    ExpectWrong(RunWith(TcpConfig("serverAddress", "")), "relay-address-empty");
    ExpectWrong(RunWith(TcpConfig("serverAddress", "relay")), "relay-address-no-port",
                "serverAddress relay has no port");
    ExpectWrong(RunWith(TcpConfig("serverAddress", "relay:https")), "relay-address",
                "is not HOST:PORT");
    ExpectWrong(RunWith(WebSocketConfig("http://127.0.0.1")), "relay-url", "http://127.0.0.1");
    ExpectWrong(RunWith(WebSocketConfig("ws://127.0.0.1:x/")), "relay-url-port", "no usable port");
}

TEST_F(DpduDoctorRelay, WithAnUnknownNameIsWrong) {
    ExpectWrong(RunWith(TcpConfig("serverAddress", kUnknownHost + ":7700")), "relay-name-unknown",
                kUnknownHost);
    const Examined examined = RunWith(WebSocketConfig("ws://" + kUnknownHost + "/"));
    ExpectWrong(examined, "relay-name-unknown", kUnknownHost);
    EXPECT_TRUE(Contains((*examined.Find("relay-name-unknown"))["next"], "websocketAddress"));
}

TEST_F(DpduDoctorRelay, NeedsACertificateThatTheSystemTrusts) {
    nlohmann::ordered_json config = WebSocketConfig(conformance::Relay::SecureWebSocketAddress());
    ExpectWrong(RunWith(config), "relay-certificate", "is not accepted");
    config["disableCertValidation"] = true;
    const Examined unchecked = RunWith(config);
    ExpectNote(unchecked, "relay-certificate-unchecked", "is not checked");
    ExpectFine(unchecked, "relay");
}

TEST_F(DpduDoctorRelay, IsReachedThroughTheProxy) {
    const Examined examined = RunWith(ProxyConfig(conformance::Relay::ProxyAddress()));
    ExpectFine(examined, "transports", "a WebSocket and a proxy");
    ExpectFine(examined, "relay");
}

// Wine's HTTP service accepts the setting but connects without the proxy.
TEST_F(DpduDoctorRelay, IsNotReachedThroughAProxyThatFails) {
    if (conformance::kSpeed == conformance::Speed::kWine) GTEST_SKIP() << "no proxy is used";
    ExpectWrong(RunWith(ProxyConfig(kNobody)), "relay-proxy-refused", kNobody);
    ExpectWrong(RunWith(ProxyConfig(kUnknownHost + ":3128")), "relay-proxy-name", kUnknownHost);
    relay_.Command("proxy refuse 407");
    ExpectWrong(RunWith(ProxyConfig(conformance::Relay::ProxyAddress())), "relay-proxy-no-tunnel",
                "opens no tunnel");
}

TEST_F(DpduDoctorRelay, ThatIsAnotherServiceIsWrong) {
    relay_.Fault("accept http 404");
    ExpectWrong(RunWith(WebSocketConfig()), "relay-no-websocket", "opens no WebSocket");
}

}  // namespace
