#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/config.h"
#include "transport/cloud/cloud_state.h"
#include "transport/transport.h"
#include "unit/cloud/fake_channel.h"
#include "unit/cloud/fake_network.h"
#include "unit/test_support.h"

namespace tarvik::test {

// The cloud transport in front of the fake network and channel. Tests start it themselves.
class CloudFixture : public testing::Test {
protected:
    void SetUp() override {
        network_.Reset();
        FakeChannel::Reset();
        config = {};
        config.useCloud = true;
        SetText(config.serverAddress, "relay.test:4711");
        SetText(config.websocketAddress, "ws://relay.test:4712/dongles");
        SetText(config.serverPublicKey, "04");
        kCloudTransport.Init();
    }
    void TearDown() override {
        kCloudTransport.Deinit();
        EXPECT_EQ(network_.OpenLinks(), 0u);
        // A look-up that nobody waits for any more may still be in progress.
        EXPECT_TRUE(Eventually([this] { return network_.NetworkUses() == 0; }));
        config = {};
        if (HasFailure()) std::fputs(console_.Text().c_str(), stderr);
    }

    template <std::size_t Capacity>
    static void SetText(char (&field)[Capacity], const std::string& text) {
        ASSERT_LT(text.size(), Capacity);
        std::memcpy(field, text.c_str(), text.size() + 1);
    }
    bool Logs(const std::string& line, std::size_t count = 1) {
        return Eventually([&] { return log_.Count(line) >= count; });
    }
    static bool IsUp() {
        return Eventually(
            [] { return cloud->linkUp && cloud->connState == ConnState::kConnected; });
    }
    // Starts the transport and waits until it is connected.
    bool Connect() {
        kCloudTransport.Start();
        return IsUp();
    }
    static bool Reaches(ConnState state) {
        return Eventually([=] { return cloud->connState == state; });
    }
    static PacketPtr Arrives(std::uint32_t type) {
        return WaitForPacket(&cloud->queues, type, kPatienceMs, kNoTag);
    }
    static Bytes Login(const std::string& mac, const std::string& name) {
        Bytes payload(kLoginSize - MIN_PKT_SIZE);
        std::memcpy(payload.data() + 4, mac.data(), 6);
        std::memcpy(payload.data() + 56, name.data(), name.size());
        return WirePacket(kTypeLogn, payload);
    }
    // The packets of this type that were sent, sealed or not, without the seal.
    std::vector<Bytes> SentOf(std::uint32_t type) {
        std::vector<Bytes> found;
        for (const Bytes& packet : network_.Sent()) {
            const bool sealed = LoadU32(packet.data()) == kTypeCryp;
            Bytes inner(packet.begin() + (sealed ? 24 : 0), packet.end());
            if (LoadU32(inner.data()) == type) found.push_back(inner);
        }
        return found;
    }

    // A header that announces this length.
    static Bytes Header(std::uint32_t length) {
        Bytes header = WirePacket(kTypeSync);
        StoreU32(header.data() + 4, length);
        return header;
    }
    void ExpectReconnectionAfterAnyByteOfAPacket() {
        ASSERT_TRUE(Connect());
        const Bytes packet = WirePacket(kTypeSync, {1, 2, 3, 4});
        for (std::size_t cut = 0; cut < packet.size(); ++cut) {
            const std::uint32_t before = network_.Connections();
            network_.Deliver({packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(cut)});
            network_.HangUp();
            ASSERT_TRUE(Eventually([&] { return network_.Connections() > before; })) << cut;
            ASSERT_TRUE(IsUp()) << cut;
        }
    }

    static constexpr std::uint32_t kPatienceMs = 10'000;
    FakeNetwork& network_ = FakeNetwork::Get();
    LogCapture log_;
    StdoutCapture console_;
};

// For behaviour that is the same over both carriers.
class BothCarriers : public CloudFixture, public testing::WithParamInterface<bool> {
protected:
    void SetUp() override {
        CloudFixture::SetUp();
        config.useWebsocket = GetParam();
    }
};

}  // namespace tarvik::test
