#include <cstring>

#include "conformance/framework/rounds.h"
#include "conformance/framework/steadiness.h"
#include "link/fragmentation.h"
#include "unit/ble/ble_fixture.h"
#include "unit/test_system.h"

namespace tarvik::test {
namespace {

constexpr std::uint32_t kTypeTest = TypeCode("TEST");
constexpr std::uint32_t kSlice = 244 - 16;  // payload bytes of one fragment

// A packet as a dongle sends it in fragments.
std::vector<Bytes> FragmentsOf(const Bytes& whole) {
    std::vector<Bytes> fragments;
    const auto count = static_cast<std::uint16_t>((whole.size() + kSlice - 1) / kSlice);
    for (std::uint16_t index = 0; index < count; ++index) {
        const std::size_t begin = std::size_t{index} * kSlice;
        const std::size_t size = std::min<std::size_t>(whole.size() - begin, kSlice);
        PacketPtr fragment = MakePacket(kTypeFrag, static_cast<std::uint32_t>(16 + size));
        fragment->SetU16(8, index);
        fragment->SetU16(10, count);
        fragment->SetU32(12, static_cast<std::uint32_t>(whole.size()));
        std::memcpy(fragment->Bytes() + 16, whole.data() + begin, size);
        fragments.push_back(BytesOf(fragment));
    }
    return fragments;
}

Bytes Joined(const std::vector<Bytes>& fragments) {
    Bytes whole;
    for (const Bytes& fragment : fragments)
        whole.insert(whole.end(), fragment.begin() + 16, fragment.end());
    return whole;
}

Bytes Pattern(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    return bytes;
}

class BleTrafficTest : public BleFixture {
protected:
    void SetUp() override {
        BleFixture::SetUp();
        dongle_ = FakeRadio::Add();
        queues_ = Connect();
        ASSERT_NE(queues_, nullptr);
        dongle_->AnswerNothing();
    }
    bool Receives(std::size_t count) const {
        return Eventually([&] { return dongle_->Received().size() == count + 1; });
    }
    std::vector<Bytes> Received() const {  // since the IDEN
        auto received = dongle_->Received();
        received.erase(received.begin());
        return received;
    }
    void Transmit(std::uint32_t type, const Bytes& payload = {}) const {
        PacketPtr packet = PacketOf(type, payload);
        EXPECT_TRUE(EnqueueTransmitPacket(queues_, packet));
    }
    // Sends another packet and expects it to be the first to arrive.
    void ExpectNothingButTheNext() const {
        dongle_->Send(PacketWithText(kTypeTest, "next"));
        const PacketPtr first = TakePacket(&queues_->rx, 10'000);
        EXPECT_EQ(BytesOf(first), BytesOf(PacketWithText(kTypeTest, "next")));
    }

    std::shared_ptr<FakeDongle> dongle_;
    DeviceQueues* queues_ = nullptr;
};

// ---------------------------------------------------------------- receiving

TEST_F(BleTrafficTest, NotificationCarriesOnePacket) {
    LogCapture log;
    StdoutCapture console;
    dongle_->Send(PacketWithText(kTypeTest, "hello"));
    EXPECT_EQ(BytesOf(Arrives(queues_, kTypeTest)), BytesOf(PacketWithText(kTypeTest, "hello")));
    EXPECT_EQ(console.Text(), "[BLE-RX] Received 13 bytes, type=TSET\n");
    EXPECT_TRUE(log.Has("[BLE-RX] Received 13 bytes (type: TSET)"));
}

TEST_F(BleTrafficTest, TypeIsShownWithoutControlCharacters) {
    constexpr std::uint32_t kType = 0x0A1B0041;
    LogCapture log;
    StdoutCapture console;
    dongle_->Send(PacketOf(kType, {}));
    EXPECT_NE(Arrives(queues_, kType), nullptr);
    Transmit(kType);
    EXPECT_TRUE(Eventually([&] { return log.Has("[BLE-TX] Sent 8 bytes"); }));
    EXPECT_TRUE(log.Has("[BLE-RX] Received 8 bytes (type: A...)"));
    EXPECT_TRUE(log.Has("[BLE-TX] Sending 8 bytes (type: A...)"));
    EXPECT_TRUE(console.Text().starts_with(
        "[BLE-RX] Received 8 bytes, type=A...\n[BLE-TX] Sending 8 bytes, type=A...\n"));
}

TEST_F(BleTrafficTest, NotificationShorterThanAHeaderIsDropped) {
    for (const std::size_t size : {0u, 1u, 7u}) {
        LogCapture log;
        StdoutCapture console;
        dongle_->Notify(Bytes(size));
        EXPECT_TRUE(log.Has("[BLE] Received packet too small: " + std::to_string(size) + " bytes"));
        EXPECT_EQ(console.Text(), "");
    }
    ExpectNothingButTheNext();
}

TEST_F(BleTrafficTest, LengthFieldBelowEightOrAboveTheNotificationIsDropped) {
    struct Row {
        std::uint32_t length;
        std::size_t payload;
        const char* reason;
    };
    for (const Row& row :
         {Row{9, 0, "Invalid packet length: 9 (received 8 bytes)"},
          Row{7, 4, "Invalid packet length: 7 (received 12 bytes)"},
          Row{0xFFFFFFFF, 0, "Invalid packet length: 4294967295 (received 8 bytes)"}}) {
        Bytes value = BytesOf(PacketOf(kTypeTest, Bytes(row.payload)));
        StoreU32(value.data() + 4, row.length);
        LogCapture log;
        StdoutCapture console;
        dongle_->Notify(value);
        EXPECT_EQ(console.Text(), std::string("[BLE-RX] ERROR: ") + row.reason + "\n");
        EXPECT_TRUE(log.Has(std::string("[BLE-RX] ") + row.reason)) << row.reason;
        ExpectNothingButTheNext();
    }
}

TEST_F(BleTrafficTest, BytesBeyondTheLengthAreIgnored) {
    Bytes value = BytesOf(PacketWithText(kTypeTest, "kept"));
    value.insert(value.end(), {1, 2, 3});
    dongle_->Notify(value);
    EXPECT_EQ(BytesOf(Arrives(queues_, kTypeTest)), BytesOf(PacketWithText(kTypeTest, "kept")));
    ExpectNothingButTheNext();
}

TEST_F(BleTrafficTest, UnreadableNotificationIsLogged) {
    LogCapture log;
    dongle_->FailNotification("no bytes");
    EXPECT_TRUE(log.Has("[BLE] RX notification error: no bytes"));
    ExpectNothingButTheNext();
}

TEST_F(BleTrafficTest, PingIsAnsweredWithRepl) {
    dongle_->Send(PacketWithText(kTypePing, "payload"));
    ASSERT_TRUE(Receives(1));
    EXPECT_EQ(Received()[0], BytesOf(PacketWithText(kTypeRepl, "payload")));
    ExpectNothingButTheNext();
}

TEST_F(BleTrafficTest, FragmentedPingIsAnsweredInFragments) {
    const Bytes payload = Pattern(400);
    for (const Bytes& fragment : FragmentsOf(BytesOf(PacketOf(kTypePing, payload))))
        dongle_->Notify(fragment);
    ASSERT_TRUE(Receives(2));
    EXPECT_EQ(Joined(Received()), BytesOf(PacketOf(kTypeRepl, payload)));
}

// ---------------------------------------------------------------- sending

TEST_F(BleTrafficTest, PacketIsWrittenInOnePieceByTheTransmitThread) {
    LogCapture log;
    StdoutCapture console;
    Transmit(kTypeTest, Pattern(236));
    ASSERT_TRUE(Receives(1));
    EXPECT_EQ(Received()[0], BytesOf(PacketOf(kTypeTest, Pattern(236))));
    EXPECT_EQ(dongle_->WriterName(), KeptThreadName("Tarvik BleTxThreadFunc"));
    ASSERT_TRUE(Eventually([&] { return log.Has("[BLE-TX] Sent 244 bytes"); }));
    EXPECT_TRUE(log.Has("[BLE-TX] Sending 244 bytes (type: TSET)"));
    EXPECT_EQ(console.Text(),
              "[BLE-TX] Sending 244 bytes, type=TSET\n"
              "[BLE-TX] Successfully sent 244 bytes\n");
}

// This also happens to a packet longer than the link's MTU, which is never cut.
TEST_F(BleTrafficTest, FailedWriteIsLoggedAndNotRepeated) {
    dongle_->Fail({.step = Step::kWrite, .status = BleStatus::kProtocolError});
    LogCapture log;
    {
        StdoutCapture console;
        Transmit(kTypeTest);
        ASSERT_TRUE(Eventually([&] { return log.Has("[BLE-TX] Failed to write: 2"); }));
        EXPECT_EQ(console.Text(),
                  "[BLE-TX] Sending 8 bytes, type=TSET\n"
                  "[BLE-TX] ERROR: Failed to write (status: 2)\n");
    }
    dongle_->Work();
    Transmit(kTypeIden);
    ASSERT_TRUE(Receives(1));
    EXPECT_EQ(Received()[0], BytesOf(PacketOf(kTypeIden, {})));
}

TEST_F(BleTrafficTest, WriteThatThrowsCountsAsFailed) {
    dongle_->Fail({.step = Step::kWrite, .error = "no bus"});
    LogCapture log;
    Transmit(kTypeTest);
    EXPECT_TRUE(Eventually([&] { return log.Has("[BLE-TX] Failed to write: 1"); }));
    EXPECT_TRUE(log.Has("[BLE-TX] Write error: no bus"));
    EXPECT_TRUE(dongle_->IsOpen());
}

TEST_F(BleTrafficTest, FourThousandBytesAreSentAndReceivedInFragments) {
    const Bytes request = BytesOf(PacketOf(kTypeTest, Pattern(3992)));
    ASSERT_EQ(request.size(), 4000u);
    PacketPtr packet = PacketOf(kTypeTest, Pattern(3992));
    ASSERT_TRUE(FragSendPacket(queues_, packet));
    ASSERT_TRUE(Receives(18));
    for (const Bytes& fragment : Received())
        EXPECT_LE(fragment.size(), 244u);
    EXPECT_EQ(Joined(Received()), request);

    const PacketPtr answer = ResponseTo(7, Pattern(3980));
    for (const Bytes& fragment : FragmentsOf(BytesOf(answer)))
        dongle_->Notify(fragment);
    EXPECT_EQ(BytesOf(WaitForPacket(queues_, kTypeCres, 10'000, 7)), BytesOf(answer));
}

// ---------------------------------------------------------------- loss

TEST_F(BleTrafficTest, LossEndsWaitsAndFailsSendsAtOnce) {
    LogCapture log;
    std::atomic<bool> waiting{false};
    Thread wait([&] {
        waiting = true;
        EXPECT_EQ(WaitForPacket(queues_, kTypeCres, 3'600'000, 7), nullptr);
    });
    ASSERT_TRUE(Eventually([&] { return waiting.load(); }));
    dongle_->Lose();
    wait.Join();
    EXPECT_FALSE(queues_->available);
    PacketPtr packet = PacketOf(kTypeTest, {});
    EXPECT_FALSE(FragSendPacket(queues_, packet));
    EXPECT_TRUE(Eventually(
        [&] { return log.Has("[BLE] TX thread exiting") && log.Has("[BLE] RX thread exiting"); }));
    EXPECT_TRUE(log.Has("[BLE] Connection to A0:B1:C2:D3:E4:F5 lost"));
}

TEST_F(BleTrafficTest, LostDongleIsConnectedAgainWithTheSameQueues) {
    dongle_->Lose();
    dongle_->Behave([](FakeDongle& self, const Bytes& packet) {
        if (LoadU32(packet.data()) == kTypeIden) self.Send(LoginOf("back"));
    });
    EXPECT_EQ(Connect(), queues_);
    EXPECT_EQ(dongle_->OpenCount(), 2);
    EXPECT_EQ(ConnectedCount(), 1u);
    EXPECT_TRUE(queues_->available);
}

TEST_F(BleTrafficTest, LostDongleThatStaysAwayIsNotReported) {
    dongle_->Lose();
    FakeRadio::Remove(dongle_);
    StdoutCapture console;
    EXPECT_EQ(Scan().size(), 0u);
    EXPECT_TRUE(Contains(console.Text(), "[BLE] Checking 0 already-connected device(s)...\n"));
    EXPECT_EQ(ConnectedCount(), 0u);
    EXPECT_TRUE(Eventually([&] { return !dongle_->IsOpen(); }));
}

TEST_F(BleTrafficTest, PacketsOfALostConnectionDoNotReachTheNextOne) {
    const auto fragments = FragmentsOf(BytesOf(PacketOf(kTypeTest, Pattern(400))));
    ASSERT_EQ(fragments.size(), 2u);
    dongle_->Notify(fragments[0]);
    dongle_->Send(PacketWithText(kTypeTest, "stale"));
    dongle_->Lose();
    dongle_->Behave([](FakeDongle& self, const Bytes&) { self.Send(LoginOf("back")); });
    ASSERT_EQ(Connect(), queues_);
    LogCapture log;
    dongle_->Notify(fragments[1]);
    ExpectNothingButTheNext();
}

TEST_F(BleFixture, DongleLostWhileSubscribingIsNotReported) {
    const auto dongle = FakeRadio::Add();
    dongle->lost_while_subscribing = true;
    LogCapture log;
    {
        StdoutCapture console;
        EXPECT_EQ(Scan().size(), 0u);
        EXPECT_FALSE(Contains(console.Text(), "Connection complete"));
        EXPECT_TRUE(Contains(console.Text(), "[BLE] Thread completed, success=0, queues="));
        EXPECT_TRUE(Contains(console.Text(), "[BLE] Connection failed\n"));
    }
    EXPECT_FALSE(log.Has("[BLE] Device connected and ready"));
    EXPECT_FALSE(dongle->IsOpen());
    EXPECT_EQ(ConnectedCount(), 0u);
    dongle->lost_while_subscribing = false;
    EXPECT_EQ(Scan().size(), 1u);
    EXPECT_EQ(ConnectedCount(), 1u);
}

// Its login would otherwise be taken for the answer to an IDEN that has not been sent.
TEST_F(BleFixture, NotificationWhileSubscribingIsDropped) {
    const auto dongle = FakeRadio::Add();
    dongle->sent_while_subscribing = BytesOf(PacketWithText(kTypeTest, "early"));
    const std::vector<DeviceReport> reports = Scan();
    ASSERT_EQ(reports.size(), 1u);
    dongle->Send(PacketWithText(kTypeTest, "late"));
    EXPECT_EQ(BytesOf(TakePacket(&reports[0].queues->rx, 10'000)),
              BytesOf(PacketWithText(kTypeTest, "late")));
}

TEST_F(BleFixture, DongleWhoseTransmitThreadCannotUseTheRadioIsLost) {
    const auto dongle = FakeRadio::Add();
    FakeRadio::enter_fails_on = "Tarvik BleTxThreadFunc";
    FakeRadio::enter_error = "no apartment";
    LogCapture log;
    EXPECT_EQ(Scan().size(), 0u);
    EXPECT_TRUE(log.Has("[BLE] TX thread cannot use the radio: no apartment"));
    EXPECT_TRUE(Eventually([&] { return log.Has("[BLE] TX thread exiting"); }));
    FakeRadio::enter_error = "";
    EXPECT_EQ(Scan().size(), 1u);
    EXPECT_EQ(ConnectedCount(), 1u);
}

TEST_F(BleFixture, RepeatedConnectionsAndLossesLeaveNothingBehind) {
    constexpr std::uint32_t kRounds = conformance::Rounds(200, 40, 20);
    constexpr std::uint32_t kWarmUp = conformance::Rounds(20, 5, 3);
    const auto dongle = FakeRadio::Add();
    conformance::ProcessFigures before;
    MemoryUse memory_before{};
    for (std::uint32_t round = 1; round <= kWarmUp + kRounds; ++round) {
        ASSERT_EQ(Scan(1).size(), 1u) << round;
        // A thread of the previous connection that is still running keeps its device.
        ASSERT_TRUE(Eventually([] { return FakeRadio::devices == 1; })) << round;
        if (round == kWarmUp) {
            before = conformance::MeasureProcess();
            memory_before = LiveMemory();
        }
        if (round < kWarmUp + kRounds) dongle->Lose();
    }
    EXPECT_TRUE(Eventually([&] {
        const MemoryUse now = LiveMemory();
        return now.blocks <= memory_before.blocks && now.bytes <= memory_before.bytes;
    }));
    const std::string what = std::to_string(kRounds) + " rounds of connecting and losing";
    conformance::ExpectSteady(what, before, conformance::MeasureSettled(before));
}

}  // namespace
}  // namespace tarvik::test
