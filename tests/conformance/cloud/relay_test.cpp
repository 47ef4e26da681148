// A dongle behind a relay, over every way to it.
#include <chrono>

#include "conformance/cloud/relay_fixture.h"

namespace conformance {
namespace {

class RelayedDongle : public EachWay {};

INSTANTIATE_TEST_SUITE_P(Over, RelayedDongle, testing::ValuesIn(AllWays()),
                         [](const auto& suite) { return NameOf(suite.param); });

TEST_P(RelayedDongle, IsFoundAndAddressedAndAnswers) {
    const std::uint64_t requests = ProxyRequests();
    const Settings settings = SettingsFor(GetParam());
    Construct(settings);
    const UNUM32 hMod = ConnectModule();
    ASSERT_TRUE(relay_.WaitFor(1, "in ADDR"));
    EXPECT_TRUE(IsVin(ReadVinOf(hMod)));
    EXPECT_EQ(ProxyRequests() > requests, settings.useProxy);
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_EQ(relay_.Violations(), 0u) << relay_.Command("violations");
}

// The longest that can be reassembled; it does not fit into one packet of the relay.
TEST_P(RelayedDongle, LongAnswersArriveInFragments) {
    constexpr std::size_t kLongest = 4096 - 20;  // after the header of an answer
    std::vector<UNUM8> wanted = {0x62, 0x21, 0x00};
    for (std::size_t i = wanted.size(); i < kLongest; ++i)
        wanted.push_back(static_cast<UNUM8>(i * 7 + i / 256));
    relay_.Command("data engine 2100 " + Hex({wanted.begin() + 3, wanted.end()}));
    Construct(SettingsFor(GetParam()));
    const UNUM32 hMod = ConnectModule();
    EngineLink link(hMod);
    for (int i = 0; i < 3; ++i) {
        const Outcome outcome = link.Request({0x22, 0x21, 0x00}, PositiveRead());
        ASSERT_EQ(outcome.results.size(), 1u);
        EXPECT_EQ(outcome.results[0].data, wanted);
    }
    EXPECT_EQ(relay_.Count("out FRAG"), 6u);
    EXPECT_EQ(relay_.Violations(), 0u) << relay_.Command("violations");
}

TEST_P(RelayedDongle, ComesBackWithTheRelay) {
    Construct(SettingsFor(GetParam()));
    const UNUM32 hMod = ConnectModule();
    ASSERT_TRUE(IsVin(ReadVinOf(hMod)));
    for (std::size_t round = 2; round <= 1 + kRelayLosses; ++round) {
        relay_.KillConnections();
        ASSERT_TRUE(IsConnected(round));
        ASSERT_EQ(Pdu().PDUModuleConnect(hMod), PDU_STATUS_NOERROR);
        EXPECT_TRUE(IsVin(ReadVinOf(hMod))) << round;
    }
}

TEST_P(RelayedDongle, DestructDisconnectsAtOnce) {
    Construct(SettingsFor(GetParam()));
    ASSERT_TRUE(IsConnected());
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_TRUE(log_.Has("[Cloud] ---DISCONNECTED---"));
}

// Whatever it is waiting for: the handshake's answer, the upgrade, TLS, the proxy's server.
TEST_P(RelayedDongle, DestructDoesNotWaitForASilentRelay) {
    relay_.Fault("accept deaf");
    const std::uint64_t connections = RelayConnections();
    Construct(SettingsFor(GetParam()));
    ASSERT_TRUE(Eventually([&] { return RelayConnections() > connections; }));
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
    EXPECT_FALSE(log_.Has("[Cloud] Connected"));
}

}  // namespace
}  // namespace conformance
