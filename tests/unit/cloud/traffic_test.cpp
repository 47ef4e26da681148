// What both carriers do with packets, and discovery.
#include <algorithm>

#include "link/fragmentation.h"
#include "link/packet_counters.h"
#include "unit/cloud/cloud_fixture.h"

namespace tarvik::test {
namespace {

class CloudTraffic : public BothCarriers {
protected:
    void SetUp() override {
        BothCarriers::SetUp();
        FragInit();
        ASSERT_TRUE(Connect());
        ASSERT_TRUE(network_.EventuallySends(kTypeLogn));
    }
};

INSTANTIATE_TEST_SUITE_P(Carrier, CloudTraffic, testing::Bool(),
                         [](const auto& suite) { return suite.param ? "WebSocket" : "Tcp"; });

Bytes Numbered(std::uint32_t size) {
    Bytes bytes(size);
    for (std::uint32_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    return bytes;
}

TEST_P(CloudTraffic, SealedAnswerArrivesOpened) {
    network_.Deliver(SealedPacket(WirePacket(kTypeSync, {1, 2, 3})));
    const PacketPtr packet = Arrives(kTypeSync);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->length, 11u);
}

TEST_P(CloudTraffic, UnsealedPacketIsAccepted) {
    network_.Deliver(WirePacket(kTypeSync, {1}));
    EXPECT_NE(Arrives(kTypeSync), nullptr);
}

TEST_P(CloudTraffic, ForgedPacketIsDroppedAndTheNextOneAccepted) {
    network_.Deliver(WirePacket(kTypeCryp, Numbered(40)));
    network_.Deliver(WirePacket(kTypeCryp, {}));
    network_.Deliver(WirePacket(kTypeSync, {}));
    EXPECT_NE(Arrives(kTypeSync), nullptr);
    EXPECT_EQ(log_.Count("[Cloud] Failed to open AEAD packet"), 2u);
}

TEST_P(CloudTraffic, SealedPacketWithoutAChannelIsDropped) {
    FakeChannel::EndSession();
    network_.Deliver(SealedPacket(WirePacket(kTypeIden, {})));
    network_.Deliver(WirePacket(kTypeSync, {}));
    EXPECT_NE(Arrives(kTypeSync), nullptr);
    EXPECT_TRUE(log_.Has("[Cloud] Received CRYPT packet but Noise channel not established"));
}

TEST_P(CloudTraffic, FragmentsAreJoined) {
    const Bytes whole = WirePacket(kTypeSync, Numbered(60));
    for (std::uint16_t index = 0; index < 2; ++index) {
        Bytes payload(8);
        StoreU16(payload.data(), index);
        StoreU16(payload.data() + 2, 2);
        StoreU32(payload.data() + 4, static_cast<std::uint32_t>(whole.size()));
        const auto half = static_cast<std::ptrdiff_t>(whole.size() / 2);
        payload.insert(payload.end(), whole.begin() + (index == 0 ? 0 : half),
                       index == 0 ? whole.begin() + half : whole.end());
        network_.Deliver(SealedPacket(WirePacket(kTypeFrag, payload)));
    }
    const PacketPtr packet = Arrives(kTypeSync);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(Bytes(packet->Bytes(), packet->Bytes() + packet->length), whole);
}

TEST_P(CloudTraffic, LongPacketIsSentInFragmentsThatFitWhenSealed) {
    PacketPtr request = MakePacket(kTypeTspr, 4096);
    ASSERT_TRUE(FragSendPacket(&cloud->queues, request));
    ASSERT_TRUE(network_.EventuallySends(kTypeFrag, 2));
    for (const Bytes& packet : network_.Sent())
        EXPECT_LE(packet.size(), MAX_PKT_SIZE);
}

TEST_P(CloudTraffic, PingIsAnsweredWithItsPayload) {
    network_.Deliver(WirePacket(kTypePing, {9, 8, 7}));
    ASSERT_TRUE(network_.EventuallySends(kTypeRepl));
    EXPECT_EQ(SentOf(kTypeRepl).at(0), WirePacket(kTypeRepl, {9, 8, 7}));
}

// The packet that the fragments sent so far make up.
Bytes Joined(const std::vector<Bytes>& fragments) {
    Bytes whole;
    for (const Bytes& fragment : fragments)
        whole.insert(whole.end(), fragment.begin() + sizeof(FragmentWire), fragment.end());
    return whole;
}

TEST_P(CloudTraffic, PingOfAnyLengthIsAnsweredWithinTheReceiveLimit) {
    std::size_t sent = 0;
    for (const std::uint32_t length : {4073u, 4085u, 4096u}) {
        const Bytes payload = Numbered(length - MIN_PKT_SIZE);
        network_.Deliver(WirePacket(kTypePing, payload));
        ASSERT_TRUE(network_.EventuallySends(kTypeFrag, sent + 2)) << length;
        std::vector<Bytes> fragments = SentOf(kTypeFrag);
        fragments.erase(fragments.begin(), fragments.begin() + static_cast<std::ptrdiff_t>(sent));
        EXPECT_EQ(Joined(fragments), WirePacket(kTypeRepl, payload)) << length;
        sent += 2;
    }
    for (const Bytes& packet : network_.Sent())
        EXPECT_LE(packet.size(), MAX_PKT_SIZE);
    EXPECT_EQ(network_.Connections(), 1u);
}

TEST_P(CloudTraffic, PacketThatIsTooLongToBeSealedIsDropped) {
    PacketPtr longest = MakePacket(kTypeTspr, 4072);
    PacketPtr longer = MakePacket(kTypeDoip, 4073);
    ASSERT_TRUE(EnqueueTransmitPacket(&cloud->queues, longer));
    ASSERT_TRUE(EnqueueTransmitPacket(&cloud->queues, longest));
    ASSERT_TRUE(network_.EventuallySends(kTypeTspr));
    EXPECT_EQ(network_.SentCount(kTypeDoip), 0u);
    EXPECT_EQ(log_.Count("[Cloud] Dropped a packet of 4073 bytes, at most 4072 can be sealed"), 1u);
    EXPECT_EQ(network_.Connections(), 1u);
}

// It comes back sealed, and the next session would seal it once more.
TEST_P(CloudTraffic, LongestPacketThatCouldNotBeSentIsNotPutBack) {
    network_.FailSending();
    PacketPtr longest = MakePacket(kTypeTspr, 4072);
    ASSERT_TRUE(EnqueueTransmitPacket(&cloud->queues, longest));
    ASSERT_TRUE(Logs("[Cloud] Connected", 2));
    EXPECT_TRUE(log_.Has("[Cloud] Dropped a packet of 4096 bytes, at most 4072 can be sealed"));
    network_.Deliver(WirePacket(kTypePing, {1}));
    ASSERT_TRUE(network_.EventuallySends(kTypeRepl));
    for (const Bytes& packet : network_.Sent())
        EXPECT_LE(packet.size(), MAX_PKT_SIZE);
    EXPECT_EQ(network_.Connections(), 2u);
}

TEST_P(CloudTraffic, IdentifyRequestIsAnsweredWithALogin) {
    network_.Deliver(WirePacket(kTypeIden));
    EXPECT_TRUE(network_.EventuallySends(kTypeLogn, 2));
}

void FillTransmitQueue() {
    while (HasRoomForAnswers(&cloud->queues.tx)) {
        PacketPtr packet = MakePacket(kTypeTspr, kCloudMtu);
        ASSERT_TRUE(EnqueueTransmitPacket(&cloud->queues, packet));
    }
}

std::uint64_t PacketsToSend() {
    const LockGuard hold(cloud->queues.tx.lock);
    return cloud->queues.tx.count;
}

TEST_P(CloudTraffic, RelayThatTakesNoAnswersIsNotAnswered) {
    const std::string mac("\x01\x02\x03\x04\x05\x06", 6);
    kCloudTransport.AddressDevice(reinterpret_cast<const std::uint8_t*>(mac.data()));
    ASSERT_TRUE(network_.EventuallySends(kTypeAddr));
    network_.HoldSending(true);
    FillTransmitQueue();
    ASSERT_TRUE(network_.EventuallyHolds());
    FillTransmitQueue();  // the transmit thread has taken one packet, and no more
    const std::uint64_t full = PacketsToSend();
    for (int i = 0; i < 10; ++i) {
        network_.Deliver(WirePacket(kTypeIden));
        network_.Deliver(WirePacket(kTypePing));
        network_.Deliver(Login(mac, "again"));
    }
    network_.Deliver(WirePacket(kTypeSync));
    EXPECT_NE(Arrives(kTypeSync), nullptr);
    EXPECT_EQ(PacketsToSend(), full);
    network_.HoldSending(false);
}

TEST_P(CloudTraffic, LoginsOfBothTypesAreReportedUpwards) {
    network_.Deliver(Login("\x01\x02\x03\x04\x05\x06", "one"));
    Bytes other = Login("\x01\x02\x03\x04\x05\x07", "two");
    StoreU32(other.data(), TypeCode("LOGC"));
    network_.Deliver(other);
    EXPECT_NE(Arrives(TypeCode("LOGC")), nullptr);
    EXPECT_NE(Arrives(kTypeLogn), nullptr);
    EXPECT_TRUE(Eventually([&] {
        return log_.Count(
                   "[DpduTransportReportLoginPacket] PDU API not constructed - ignoring "
                   "report") == 2;
    }));
}

TEST_P(CloudTraffic, CountersCountPacketsAsSentAndReceived) {
    const PacketCounters before = ReadPacketCounters();
    network_.Deliver(SealedPacket(WirePacket(kTypePing, {1, 2})));
    ASSERT_TRUE(network_.EventuallySends(kTypeRepl));
    const PacketCounters after = ReadPacketCounters();
    EXPECT_EQ(after.received_packets, before.received_packets + 1);
    EXPECT_EQ(after.received_bytes, before.received_bytes + 34);
    EXPECT_EQ(after.sent_packets, before.sent_packets + 1);
    EXPECT_EQ(after.sent_bytes, before.sent_bytes + 34);
}

TEST_P(CloudTraffic, TraceHasAPacketSealedAndUnsealed) {
    TraceCapture trace;
    network_.Deliver(SealedPacket(WirePacket(kTypePing, {1})));
    ASSERT_TRUE(network_.EventuallySends(kTypeRepl));
    kCloudTransport.Stop();
    trace.Stop();
    EXPECT_TRUE(
        trace.Mentions("\"dir\":\"rx\",\"stage\":\"wire\",\"type\":1129470288,"
                       "\"type_str\":\"PYRC\",\"len\":33"));
    EXPECT_TRUE(
        trace.Mentions("\"dir\":\"rx\",\"stage\":\"plain\",\"type\":1346981447,"
                       "\"type_str\":\"GNIP\",\"len\":9"));
    EXPECT_TRUE(trace.Mentions("\"dir\":\"tx\",\"stage\":\"wire\",\"type\":1129470288"));
}

// ---------------------------------------------------------------- discovery

struct Found {
    std::vector<std::string> names;
    static void Report(void* context, const DeviceReport& report) {
        EXPECT_EQ(report.transport, 0u);
        EXPECT_EQ(report.queues, &cloud->queues);
        static_cast<Found*>(context)->names.push_back(LoginDeviceName(report.login).text);
    }
};

TEST_P(CloudTraffic, DiscoveryReportsEveryDongleThatAnswers) {
    constexpr std::uint32_t kTimeoutMs = 500;
    Found found;
    FakeTick tick(1000);  // time passes only when both have been reported
    Thread relay([&] {
        if (!network_.EventuallySends(kTypeIden)) return;
        network_.Deliver(SealedPacket(Login("\x01\x02\x03\x04\x05\x06", "one")));
        network_.Deliver(SealedPacket(Login("\x01\x02\x03\x04\x05\x07", "two")));
        Logs("[Cloud] CloudUpdateDevices received: 'two' with mac 01:02:03:04:05:07");
        tick.Advance(kTimeoutMs + 1);
    });
    EXPECT_TRUE(kCloudTransport.UpdateDevices(kTimeoutMs, Found::Report, &found));
    EXPECT_EQ(found.names, (std::vector<std::string>{"one", "two"}));
    EXPECT_TRUE(log_.Has("[Cloud] CloudUpdateDevices received: 'two' with mac 01:02:03:04:05:07"));
    EXPECT_TRUE(log_.Has("[Cloud] CloudUpdateDevices done"));
}

// Each login prolongs a scan, but not without limit.
TEST_P(CloudTraffic, DiscoveryEndsWhileLoginsKeepComing) {
    constexpr std::uint32_t kTimeoutMs = 500;
    constexpr std::uint64_t kLongestMs = 3 * kTimeoutMs + 1000;
    struct Flood {
        FakeNetwork& network;
        FakeTick& tick;
        std::uint64_t logins;
        static void Report(void* context, const DeviceReport&) {
            auto* self = static_cast<Flood*>(context);
            self->tick.Advance(100);
            if (++self->logins == 1000) return kCloudTransport.Stop();  // it does not end by itself
            self->network.Deliver(SealedPacket(Login("\x01\x02\x03\x04\x05\x06", "again")));
        }
    };
    FakeTick tick(1000);
    Flood flood{network_, tick, 0};
    Thread relay([&] {
        if (network_.EventuallySends(kTypeIden))
            network_.Deliver(SealedPacket(Login("\x01\x02\x03\x04\x05\x06", "first")));
    });
    EXPECT_TRUE(kCloudTransport.UpdateDevices(kTimeoutMs, Flood::Report, &flood));
    EXPECT_EQ(flood.logins, kLongestMs / 100 + 1);
}

TEST_P(CloudTraffic, DiscoveryWithoutAnAnswerEndsAfterTwiceTheTime) {
    Found found;
    const std::uint64_t begin = TickMs();
    EXPECT_TRUE(kCloudTransport.UpdateDevices(40, Found::Report, &found));
    EXPECT_GE(TickMs() - begin, 80u);
    EXPECT_TRUE(found.names.empty());
}

TEST_P(CloudTraffic, StopEndsADiscovery) {
    Thread scan([] { kCloudTransport.UpdateDevices(600'000, nullptr, nullptr); });
    EXPECT_TRUE(Logs("[Cloud] CloudUpdateDevices: scanning for devices"));
    kCloudTransport.Stop();
    scan.Join();
    EXPECT_TRUE(log_.Has("[Cloud] CloudUpdateDevices done"));
}

class CloudDiscovery : public CloudFixture {};

TEST_F(CloudDiscovery, NeedsInitialisationAndStart) {
    EXPECT_FALSE(kCloudTransport.UpdateDevices(1, nullptr, nullptr));  // not started
    kCloudTransport.Deinit();
    EXPECT_FALSE(kCloudTransport.UpdateDevices(1, nullptr, nullptr));
    EXPECT_TRUE(log_.Has("[CloudUpdateDevices] Not initialized"));
    const std::uint8_t mac[6] = {};
    EXPECT_FALSE(kCloudTransport.AddressDevice(mac));
    EXPECT_TRUE(log_.Has("[CloudAddressDevice] Not initialized"));
    kCloudTransport.Start();
    EXPECT_TRUE(log_.Has("[CloudStart] Not initialized, cannot start"));
}

TEST_F(CloudDiscovery, WaitsFourTimesTheTimeForALink) {
    network_.Receive(Reception::kNeverAnswer);
    kCloudTransport.Start();
    const std::uint64_t begin = TickMs();
    EXPECT_FALSE(kCloudTransport.UpdateDevices(10, nullptr, nullptr));
    EXPECT_GE(TickMs() - begin, 40u);
    EXPECT_TRUE(log_.Has("[Cloud] CloudUpdateDevices: no link after 40 ms"));
}

TEST_F(CloudDiscovery, UsesALinkThatComesUpDuringTheWait) {
    network_.Receive(Reception::kNeverAnswer);
    kCloudTransport.Start();
    bool scanned = false;
    Thread scan([&] { scanned = kCloudTransport.UpdateDevices(60'000, nullptr, nullptr); });
    EXPECT_TRUE(Logs("[Cloud] CloudUpdateDevices: waiting for link"));
    network_.Receive(Reception::kAccept);
    EXPECT_TRUE(Logs("[Cloud] CloudUpdateDevices: scanning for devices"));
    kCloudTransport.Stop();
    scan.Join();
    EXPECT_TRUE(scanned);
}

}  // namespace
}  // namespace tarvik::test
