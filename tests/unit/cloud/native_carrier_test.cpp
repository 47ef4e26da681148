// The relay's address, and packets on a TCP stream.
#include "transport/cloud/server_address.h"
#include "unit/cloud/cloud_fixture.h"

namespace tarvik::test {
namespace {

// ---------------------------------------------------------------- the address

TEST(ServerAddressText, IsSplitAtTheLastColon) {
    ServerAddress address{};
    ASSERT_TRUE(ParseServerAddress("relay.example:4711", &address));
    EXPECT_STREQ(address.host, "relay.example");
    EXPECT_EQ(address.port, 4711);
    ASSERT_TRUE(ParseServerAddress("fe80::1:65535", &address));
    EXPECT_STREQ(address.host, "fe80::1");
    EXPECT_EQ(address.port, 65535);
    ASSERT_TRUE(ParseServerAddress("h:1", &address));
    EXPECT_EQ(address.port, 1);
    ASSERT_TRUE(ParseServerAddress("h:00080", &address));
    EXPECT_EQ(address.port, 80);
}

TEST(ServerAddressText, RefusesAMissingOrWrongHostOrPort) {
    ServerAddress address{};
    for (const char* text :
         {"", ":", "host", "host:", ":80", "host:0", "host:65536", "host:99999999", "host:80 ",
          "host: 80", "host:+80", "host:-1", "host:80x", "host:x", "host:0x50", "host:8.0"}) {
        EXPECT_FALSE(ParseServerAddress(text, &address)) << text;
    }
}

TEST(ServerAddressText, HostOf255CharactersIsTheLongest) {
    ServerAddress address{};
    EXPECT_TRUE(ParseServerAddress((std::string(255, 'h') + ":1").c_str(), &address));
    EXPECT_FALSE(ParseServerAddress((std::string(256, 'h') + ":1").c_str(), &address));
}

// ---------------------------------------------------------------- connecting

class NativeCarrier : public CloudFixture {
protected:
    class Stopwatch {
    public:
        std::uint64_t Ms() const {
            const auto passed = std::chrono::steady_clock::now() - begin_;
            return static_cast<std::uint64_t>(
                std::chrono::duration_cast<std::chrono::milliseconds>(passed).count());
        }

    private:
        std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    };
};

TEST_F(NativeCarrier, ConnectsToTheConfiguredAddress) {
    ASSERT_TRUE(Connect());
    EXPECT_EQ(network_.Target(), "relay.test:4711");
    EXPECT_TRUE(log_.Has("Connecting..."));
    EXPECT_TRUE(log_.Has("Connecting to relay.test:4711"));
    EXPECT_TRUE(log_.Mentions("[NativeConnect] Created Thread handle 0x"));
    EXPECT_TRUE(log_.Mentions("(RxThreadFunc)"));
    EXPECT_TRUE(log_.Mentions("(TxThreadFunc)"));
}

TEST_F(NativeCarrier, LogsAMissingAddress) {
    SetText(config.serverAddress, "");
    kCloudTransport.Start();
    EXPECT_TRUE(Logs("[Cloud] ERROR: Server address not configured in config.json"));
    EXPECT_TRUE(Logs("[Cloud] Please set 'serverAddress' to '<host>:<port>' in config.json"));
    EXPECT_TRUE(Logs("[Cloud] Connect failed, retry"));
}

TEST_F(NativeCarrier, LogsAWrongAddress) {
    SetText(config.serverAddress, "relay.test:65536");
    kCloudTransport.Start();
    EXPECT_TRUE(
        Logs("[Cloud] ERROR: Invalid serverAddress format. Expected '<host>:<port>' but got "
             "'relay.test:65536'"));
}

TEST_F(NativeCarrier, LogsANameThatIsNotResolved) {
    network_.FailResolving(-2);
    kCloudTransport.Start();
    EXPECT_TRUE(Logs("[Cloud] ERROR: getaddrinfo failed for relay.test:4711 (-2)"));
}

TEST_F(NativeCarrier, LogsARefusedConnection) {
    network_.Receive(Reception::kRefuse);
    kCloudTransport.Start();
    EXPECT_TRUE(Logs("[Cloud] Connect Failed"));
}

// ---------------------------------------------------------------- the stream

TEST_F(NativeCarrier, ReceivesTheLongestPacket) {
    ASSERT_TRUE(Connect());
    network_.Deliver(WirePacket(kTypeSync, Bytes(MAX_PKT_SIZE - MIN_PKT_SIZE)));
    EXPECT_NE(Arrives(kTypeSync), nullptr);
}

TEST_F(NativeCarrier, EndsTheConnectionOnALengthAboveTheLimit) {
    ASSERT_TRUE(Connect());
    network_.Deliver(Header(4097));
    EXPECT_TRUE(Logs("[Cloud] RxThread exited. Reconnecting."));
    EXPECT_TRUE(Eventually([&] { return network_.Connections() == 2; }));
    EXPECT_TRUE(IsUp());
}

TEST_F(NativeCarrier, EndsTheConnectionOnAnIncompletePacket) {
    ASSERT_TRUE(Connect());
    network_.Deliver(Header(9));
    EXPECT_TRUE(Logs("[Cloud] RxThread exited. Reconnecting."));
}

TEST_F(NativeCarrier, WaitsForTheRestOfAHeaderWithoutSpinning) {
    ASSERT_TRUE(Connect());
    const Bytes packet = WirePacket(kTypeSync);
    const Stopwatch time;
    const std::uint32_t before = network_.Peeks();
    for (const std::uint8_t byte : packet) {
        network_.Deliver({byte});
        SleepMs(20);
    }
    ASSERT_NE(Arrives(kTypeSync), nullptr);
    const std::uint32_t peeks = network_.Peeks() - before;  // before the time is taken
    EXPECT_LE(peeks, time.Ms() / 5 + packet.size());
    EXPECT_EQ(network_.Connections(), 1u);
}

TEST_F(NativeCarrier, KeepsAHeaderWithATooShortLengthWithoutSpinning) {
    ASSERT_TRUE(Connect());
    const Stopwatch time;
    const std::uint32_t before = network_.Peeks();
    network_.Deliver(Header(7));
    ASSERT_TRUE(Eventually([&] { return network_.Peeks() >= before + 3; }));
    const std::uint32_t peeks = network_.Peeks() - before;  // before the time is taken
    EXPECT_LE(peeks, time.Ms() / 10 + 2);
    EXPECT_EQ(network_.Connections(), 1u);
    EXPECT_FALSE(log_.Mentions("Reconnecting"));
    kCloudTransport.Stop();
}

// Nothing may wait for bytes that can no longer come.
TEST_F(NativeCarrier, ReconnectsWhenTheStreamEndsAfterAnyByteOfAPacket) {
    ExpectReconnectionAfterAnyByteOfAPacket();
}

TEST_F(NativeCarrier, ReconnectsWhenTheStreamEndsOnATooShortLength) {
    ASSERT_TRUE(Connect());
    network_.Deliver(Header(0));
    network_.HangUp();
    EXPECT_TRUE(Logs("[Cloud] RxThread exited. Reconnecting."));
    EXPECT_TRUE(Eventually([&] { return network_.Connections() == 2; }));
    EXPECT_TRUE(IsUp());
}

// The system offers no way to end a look-up.
TEST_F(NativeCarrier, StopDoesNotWaitForALookUp) {
    network_.HoldResolving(true);
    kCloudTransport.Start();
    ASSERT_TRUE(Eventually([&] { return network_.Resolving() == 1; }));
    kCloudTransport.Stop();
    EXPECT_EQ(network_.Resolving(), 1u);
    EXPECT_TRUE(log_.Has("[Cloud] ---DISCONNECTED---"));
    EXPECT_FALSE(log_.Mentions("getaddrinfo"));
    network_.HoldResolving(false);
    EXPECT_TRUE(Eventually([&] { return network_.NetworkUses() == 0; }));
    ASSERT_TRUE(Connect());
}

}  // namespace
}  // namespace tarvik::test
