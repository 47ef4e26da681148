// Faults of relay and network, after which the connection comes back.
#include "conformance/cloud/relay_fixture.h"

namespace conformance {
namespace {

class RelayFault : public EachWay {
protected:
    // Meets this fault; the connection comes up nevertheless.
    void ConnectThrough(const std::string& fault) {
        relay_.Fault(fault);
        Construct(SettingsFor(GetParam()));
        EXPECT_TRUE(IsConnected()) << fault;
    }
};

INSTANTIATE_TEST_SUITE_P(Over, RelayFault, testing::Values(Way::kTcp, Way::kWebSocket),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(RelayFault, DamagedHandshakeIsAFailedAttempt) {
    ConnectThrough("once NHS2 flip 800");
    EXPECT_TRUE(log_.Has("[Cloud] Handshake failed"));
    EXPECT_TRUE(log_.Has("[Cloud] Connect failed, retry"));
}

TEST_P(RelayFault, MissingAcknowledgementIsAFailedAttempt) {
    ConnectThrough("once DEVA drop");
    EXPECT_TRUE(log_.Has("[CloudSec] [E] Failed to read ident ack"));
    EXPECT_TRUE(log_.Has("[Cloud] Device identification failed"));
}

TEST_P(RelayFault, RefusedConnectionIsRetried) {
    ConnectThrough("times 2 accept refuse");
    EXPECT_TRUE(log_.Has("[Cloud] Connect failed, retry"));
}

TEST_P(RelayFault, LengthAboveTheLimitIsHandledByTheCarrier) {
    relay_.Fault("once LOGN header 5000");
    Construct(SettingsFor(GetParam()));
    EXPECT_NE(FindModule(), PDU_HANDLE_UNDEF);
    const bool over_tcp = GetParam() == Way::kTcp;
    EXPECT_EQ(log_.Has("[Cloud] RxThread exited. Reconnecting."), over_tcp);
    EXPECT_EQ(log_.Has("[WebSocketRxThreadFunc] Invalid packet length: 5000 (min: 8, max: 4096)"),
              !over_tcp);
}

// An answer that is too long once sealed would end this connection and the next ones.
TEST_P(RelayFault, UnsealedPingOfAnyLengthIsAnswered) {
    relay_.Fault("PING * plain");
    Construct(SettingsFor(GetParam()));
    ASSERT_TRUE(IsConnected());
    std::size_t answers = 0;
    for (const std::size_t length : {4072u, 4073u, 4096u}) {
        std::string payload;
        for (std::size_t i = 8; i < length; ++i)
            payload += i % 2 == 0 ? "5A" : "C3";
        relay_.Command("ping " + payload);
        EXPECT_TRUE(relay_.WaitFor(++answers, "in REPL")) << length;
    }
    EXPECT_TRUE(IsVin(ReadVinOf(ConnectModule())));
    EXPECT_EQ(log_.Count("[Cloud] Connected"), 1u);
}

class WebSocketFault : public RelayFixture {};

TEST_F(WebSocketFault, TextMessageEndsTheConnectionThatComesBack) {
    relay_.Fault("once DEVA text hello");
    Construct(SettingsFor(Way::kWebSocket));
    EXPECT_TRUE(IsConnected());
    EXPECT_TRUE(log_.Has("[WebSocketReceiveFull] Unexpected buffer type: 2"));
}

TEST_F(WebSocketFault, MessagesOfAnySizeFormOneStream) {
    for (const char* fault : {"packet * recut 3", "packet * frames 3"}) {
        SCOPED_TRACE(fault);
        relay_.Reset();
        relay_.Fault(fault);
        Construct(SettingsFor(Way::kWebSocket));
        const UNUM32 hMod = ConnectModule();
        EXPECT_TRUE(IsVin(ReadVinOf(hMod)));
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    }
}

TEST_F(WebSocketFault, RefusedUpgradeIsAFailedAttempt) {
    relay_.Fault("once accept http 503");
    Construct(SettingsFor(Way::kWebSocket));
    EXPECT_TRUE(IsConnected());
    EXPECT_TRUE(log_.HasLike("WinHttpWebSocketCompleteUpgrade Failed: *"));
}

// The relay has signed its certificate itself, so no system knows the issuer.
TEST_F(WebSocketFault, UnknownCertificateIsRefusedIfChecked) {
    Settings settings = SettingsFor(Way::kSecureWebSocket);
    settings.disableCertValidation = false;
    Construct(settings);
    // The second is Wine's code for it.
    EXPECT_TRUE(Eventually([&] {
        return log_.Has("WinHttpSendRequest Failed: 12175") ||
               log_.Has("WinHttpSendRequest Failed: 12157");
    }));
    EXPECT_EQ(relay_.Count("in NHS1"), 0u);
}

}  // namespace
}  // namespace conformance
