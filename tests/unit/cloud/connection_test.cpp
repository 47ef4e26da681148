// The connection thread: its states, its retries and its end.
#include "unit/cloud/cloud_fixture.h"
#include "unit/faults/user_fault.h"

namespace tarvik::test {
namespace {

class CloudConnection : public BothCarriers {};

INSTANTIATE_TEST_SUITE_P(Carrier, CloudConnection, testing::Bool(),
                         [](const auto& suite) { return suite.param ? "WebSocket" : "Tcp"; });

TEST_P(CloudConnection, DisabledTransportStartsNothing) {
    config.useCloud = false;
    kCloudTransport.Start();
    EXPECT_TRUE(log_.Has("[Cloud] ---CONNECTING---"));
    kCloudTransport.Stop();
    EXPECT_EQ(network_.Connections(), 0u);
    EXPECT_FALSE(log_.Has("[Cloud] ---DISCONNECT WAIT---"));
}

TEST_P(CloudConnection, SendsItsLoginSealedAfterTheHandshake) {
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(network_.EventuallySends(kTypeLogn));
    const std::vector<Bytes> sent = network_.Sent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(LoadU32(sent[0].data()), kTypeNhs1);
    EXPECT_EQ(LoadU32(sent[1].data()), kTypeCryp);
    EXPECT_EQ(LoadU32(sent[1].data() + 24), kTypeDevi);
    EXPECT_EQ(LoadU32(sent[2].data()), kTypeCryp);
    for (const char* line :
         {"[Cloud] ---CONNECTING---", "[Cloud] Connecting...",
          "[Cloud] Using Noise-like handshake...", "[Cloud] Device accepted by server",
          "[Cloud] Handshake complete, starting communication threads", "Login...", "Login done",
          "[Cloud] Connected"}) {
        EXPECT_TRUE(log_.Has(line)) << line;
    }
}

TEST_P(CloudConnection, LoginHoldsVersionUserAndBuild) {
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(network_.EventuallySends(kTypeLogn));
    const Bytes login = SentOf(kTypeLogn).at(0);
    ASSERT_EQ(login.size(), kLoginSize);
    const auto text = [&](std::size_t offset) {
        return std::string(reinterpret_cast<const char*>(login.data() + offset));
    };
    EXPECT_EQ(Bytes(login.begin() + 8, login.begin() + 32), Bytes(24));
    EXPECT_EQ(text(32), "1.5.0.62-95aec0c");
    EXPECT_EQ(Bytes(login.begin() + 48, login.begin() + 64), Bytes(16));
    EXPECT_EQ(text(64).substr(0, 6), "DPDU: ");
    EXPECT_LE(text(64).size(), 31u);
    EXPECT_EQ(text(96).size(), 8u);
    EXPECT_EQ(text(112).size(), 11u);
    EXPECT_EQ(Bytes(login.begin() + 128, login.end()), Bytes(64));
}

TEST_P(CloudConnection, LoginHoldsWholeCharactersOfALongUserName) {
    const struct {
        const char* user;
        const char* name;
    } rows[] = {
        {"", "DPDU: (unknown)"},
        {"1234567890123456789012345", "DPDU: 1234567890123456789012345"},
        {"12345678901234567890123456", "DPDU: 1234567890123456789012345"},
        {"Пётр 山田 😀", "DPDU: Пётр 山田 😀"},
        {"山山山山山山山山é1", "DPDU: 山山山山山山山山"},
        {"山山山山山山山山1é", "DPDU: 山山山山山山山山1"},
        {"12345678901234567890123😀", "DPDU: 12345678901234567890123"},
    };
    std::size_t logins = 0;
    for (const auto& row : rows) {
        const test::UserNameFault user(row.user);
        ASSERT_TRUE(Connect());
        ASSERT_TRUE(network_.EventuallySends(kTypeLogn, ++logins));
        const Bytes login = SentOf(kTypeLogn).at(logins - 1);
        EXPECT_STREQ(reinterpret_cast<const char*>(login.data() + 64), row.name);
        kCloudTransport.Stop();
    }
}

TEST_P(CloudConnection, IsolatedDeviceIsConnected) {
    FakeChannel::status = 1;
    EXPECT_TRUE(Connect());
    EXPECT_TRUE(log_.Has("[Cloud] Device running in ISOLATED mode - limited functionality"));
}

TEST_P(CloudConnection, UnknownStatusIsAcceptedAndNotLogged) {
    FakeChannel::status = 7;
    EXPECT_TRUE(Connect());
    EXPECT_FALSE(log_.Mentions("[Cloud] Device "));
}

TEST_P(CloudConnection, RejectedDeviceIsAFailedAttempt) {
    FakeChannel::status = 2;
    kCloudTransport.Start();
    EXPECT_TRUE(Logs("[Cloud] Device rejected by server"));
    EXPECT_TRUE(Logs("[Cloud] Connect failed, retry"));
    EXPECT_FALSE(cloud->linkUp);
}

TEST_P(CloudConnection, MissingServerKeyIsAFailedAttempt) {
    SetText(config.serverPublicKey, "");
    kCloudTransport.Start();
    EXPECT_TRUE(Logs("[Cloud] ERROR: serverPublicKey not configured; Noise is required"));
    EXPECT_TRUE(Logs("[Cloud] Connect failed, retry"));
    EXPECT_EQ(network_.SentCount(kTypeNhs1), 0u);
}

TEST_P(CloudConnection, EachFailedStepOfTheChannelIsLogged) {
    FakeChannel::identity_failures = 1;
    FakeChannel::handshake_failures = 1;
    FakeChannel::identify_failures = 1;
    EXPECT_TRUE(Connect());
    for (const char* line : {"[Cloud] Failed to load device identity", "[Cloud] Handshake failed",
                             "[Cloud] Device identification failed"}) {
        EXPECT_EQ(log_.Count(line), 1u) << line;
    }
}

TEST_P(CloudConnection, SeventhFailureInARowGivesUp) {
    network_.Receive(Reception::kRefuse);
    kCloudTransport.Start();
    ASSERT_TRUE(Reaches(ConnState::kFailed));
    EXPECT_EQ(network_.Connections(), 7u);
    EXPECT_EQ(log_.Count("[Cloud] Connect failed, retry"), 6u);
    EXPECT_EQ(log_.Count("[Cloud] Failed, waiting for disconnect"), 1u);
}

TEST_P(CloudConnection, GivenUpConnectionRestartsWhenRequestedAgain) {
    network_.Receive(Reception::kRefuse);
    kCloudTransport.Start();
    ASSERT_TRUE(Reaches(ConnState::kFailed));
    cloud->connectRequested = false;
    ASSERT_TRUE(Reaches(ConnState::kIdle));
    network_.Receive(Reception::kAccept);
    cloud->connectRequested = true;
    EXPECT_TRUE(IsUp());
}

TEST_P(CloudConnection, SuccessResetsTheCountOfFailures) {
    network_.RefuseNext(5);
    ASSERT_TRUE(Connect());
    const std::size_t failures = log_.Count("[Cloud] Connect failed, retry");
    EXPECT_EQ(failures, 5u);
    network_.Receive(Reception::kRefuse);
    network_.HangUp();
    ASSERT_TRUE(Reaches(ConnState::kFailed));
    EXPECT_EQ(log_.Count("[Cloud] Connect failed, retry"), failures + 6);
}

TEST_P(CloudConnection, ReconnectsAfterALoss) {
    ASSERT_TRUE(Connect());
    for (std::uint32_t i = 2; i <= 3; ++i) {
        network_.HangUp();
        ASSERT_TRUE(Eventually([&] { return network_.Connections() == i; }));
        ASSERT_TRUE(IsUp());
    }
    EXPECT_TRUE(log_.Has("[Cloud] RxThread exited. Reconnecting."));
    EXPECT_TRUE(log_.Has("[Cloud] Threads exited. Done."));
}

TEST_P(CloudConnection, ReconnectsAfterAFailedSendAndSendsThePacketAgain) {
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(network_.EventuallySends(kTypeLogn));
    network_.FailSending();
    PacketPtr request = MakePacket(kTypeTspr, 24);
    ASSERT_TRUE(EnqueueTransmitPacket(&cloud->queues, request));
    ASSERT_TRUE(Logs("[Cloud] TxThread exited. Reconnecting."));
    EXPECT_TRUE(network_.EventuallySends(kTypeTspr));
    EXPECT_TRUE(IsUp());
}

TEST_P(CloudConnection, DisconnectsWhenNoLongerRequested) {
    ASSERT_TRUE(Connect());
    cloud->connectRequested = false;
    EXPECT_TRUE(Logs("[Cloud] Disconnecting"));
    EXPECT_TRUE(Reaches(ConnState::kIdle));
    EXPECT_TRUE(Eventually([&] { return network_.OpenLinks() == 0; }));
}

// ---------------------------------------------------------------- the end

TEST_P(CloudConnection, StopEndsAConnection) {
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(network_.EventuallySends(kTypeLogn));
    // Held until the connection thread has seen the stop. Otherwise it might first see the end of
    // the receive thread, which is woken at once.
    network_.HoldReading(true);
    network_.Deliver(WirePacket(kTypeSync));
    ASSERT_TRUE(network_.EventuallyHolds());
    Thread release([this] {
        Logs("[Cloud] Disconnecting");
        network_.HoldReading(false);
    });
    kCloudTransport.Stop();
    EXPECT_EQ(network_.OpenLinks(), 0u);
    for (const char* line : {"[Cloud] ---DISCONNECT WAIT---", "[Cloud] Quit requested",
                             "[Cloud] Disconnecting", "[Cloud] ---DISCONNECTED---"}) {
        EXPECT_TRUE(log_.Has(line)) << line;
    }
}

TEST_P(CloudConnection, StopEndsAnUnansweredAttempt) {
    network_.Receive(Reception::kNeverAnswer);
    kCloudTransport.Start();
    ASSERT_TRUE(Eventually([&] { return network_.Connections() == 1; }));
    kCloudTransport.Stop();
    EXPECT_TRUE(log_.Has("[Cloud] ---DISCONNECTED---"));
}

TEST_P(CloudConnection, StopEndsAGivenUpConnection) {
    network_.Receive(Reception::kRefuse);
    kCloudTransport.Start();
    ASSERT_TRUE(Reaches(ConnState::kFailed));
    kCloudTransport.Stop();
    EXPECT_TRUE(log_.Has("[Cloud] ---DISCONNECTED---"));
}

TEST_P(CloudConnection, StopMayComeBetweenAnyTwoSteps) {
    for (int round = 0; round < 21; ++round) {
        kCloudTransport.Start();
        SleepMs(static_cast<std::uint32_t>(round % 7));
        kCloudTransport.Stop();
        ASSERT_EQ(network_.OpenLinks(), 0u);
        ASSERT_EQ(cloud->receive_thread, nullptr);
        ASSERT_EQ(cloud->transmit_thread, nullptr);
    }
}

TEST_P(CloudConnection, SecondStartAndSecondStopDoNothing) {
    ASSERT_TRUE(Connect());
    kCloudTransport.Start();
    EXPECT_EQ(cloud->connState, ConnState::kConnected);
    kCloudTransport.Stop();
    kCloudTransport.Stop();
    EXPECT_EQ(log_.Count("[Cloud] ---DISCONNECTED---"), 1u);
}

TEST_P(CloudConnection, StartAfterAStopConnectsAgain) {
    ASSERT_TRUE(Connect());
    kCloudTransport.Stop();
    EXPECT_TRUE(Connect());
    EXPECT_EQ(network_.Connections(), 2u);
}

TEST_P(CloudConnection, UnsentHandshakePacketsOfAnEarlierConnectionAreDropped) {
    for (const std::uint32_t type : {kTypeNhs1, kTypeTspr, kTypeDevi}) {
        PacketPtr packet = MakePacket(type, 24);
        AppendPacket(&cloud->queues.tx, packet, kNoTag);
    }
    ASSERT_TRUE(Connect());
    ASSERT_TRUE(network_.EventuallySends(kTypeTspr));
    ASSERT_TRUE(network_.EventuallySends(kTypeLogn));  // the last one
    EXPECT_EQ(network_.SentCount(kTypeNhs1), 1u);
    EXPECT_EQ(network_.SentCount(kTypeDevi), 1u);
}

// ---------------------------------------------------------------- the address

TEST_P(CloudConnection, AddressIsSentAgainAfterAReconnection) {
    ASSERT_TRUE(Connect());
    const std::uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(kCloudTransport.AddressDevice(mac));
    ASSERT_TRUE(network_.EventuallySends(kTypeAddr));
    EXPECT_EQ(SentOf(kTypeAddr).at(0), WirePacket(kTypeAddr, {1, 2, 3, 4, 5, 6, 0, 0}));
    network_.HangUp();
    ASSERT_TRUE(network_.EventuallySends(kTypeAddr, 2));
    // Deliberate: once.
    ASSERT_TRUE(Eventually([&] { return network_.Connections() == 2 && cloud->linkUp; }));
    network_.HangUp();
    ASSERT_TRUE(Eventually([&] { return network_.Connections() == 3; }));
    ASSERT_TRUE(IsUp());
    PacketPtr last = MakePacket(kTypeTspr, 24);  // after everything that a connection starts with
    ASSERT_TRUE(EnqueueTransmitPacket(&cloud->queues, last));
    ASSERT_TRUE(network_.EventuallySends(kTypeTspr));
    EXPECT_EQ(network_.SentCount(kTypeAddr), 2u);
}

TEST_P(CloudConnection, AddressedDeviceIsAddressedAgainWhenItLogsInAgain) {
    ASSERT_TRUE(Connect());
    const std::string mac = "\x01\x02\x03\x04\x05\x06";
    kCloudTransport.AddressDevice(reinterpret_cast<const std::uint8_t*>(mac.data()));
    network_.Deliver(Login("\x01\x02\x03\x04\x05\x07", "other"));
    network_.Deliver(Login(mac, "addressed"));
    EXPECT_TRUE(network_.EventuallySends(kTypeAddr, 2));
    EXPECT_EQ(log_.Count("Received LOGIN"), 2u);
    EXPECT_EQ(log_.Count("Was our previous one. Reconnecting."), 1u);
}

}  // namespace
}  // namespace tarvik::test
