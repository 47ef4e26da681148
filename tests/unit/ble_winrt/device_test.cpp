#include <functional>
#include <iterator>

#include "unit/ble_winrt/fixture.h"

namespace tarvik::test {
namespace {

TEST_F(WinrtRadio, DoesNotOpenADeviceThatTheSystemHasNeverSeen) {
    EXPECT_EQ(radio->Open(kUnknownAddress), nullptr);
}

TEST_F(WinrtDongle, AnswersThroughItsCharacteristic) {
    Connect();
    ASSERT_EQ(WriteIden(), BleStatus::kSuccess);
    ASSERT_TRUE(Eventually([&] { return !record.Values().empty(); }));
    const std::string login = record.Values().front();
    EXPECT_EQ(login.size(), 192u);
    EXPECT_EQ(login.substr(0, 4), "NGOL");
    EXPECT_EQ(record.Losses(), 0);
    EXPECT_TRUE(record.Errors().empty());
}

TEST_F(WinrtDongle, IsDisconnectedWhenItIsClosed) {
    Connect();
    EXPECT_TRUE(RadioSays("\"connected\":true"));
    device.reset();
    EXPECT_TRUE(Eventually([&] { return RadioSays("\"connected\":false"); }));
    EXPECT_EQ(record.Losses(), 0);
}

TEST_F(WinrtDongle, IsDisconnectedAfterWhicheverStepIsTheLast) {
    const std::function<void()> steps[] = {
        [&] { Open(); },
        [&] { EXPECT_EQ(device->DiscoverServices(), BleStatus::kSuccess); },
        [&] { EXPECT_TRUE(device->SelectService(kServiceUuid)); },
        [&] { EXPECT_EQ(device->DiscoverCharacteristics(), BleStatus::kSuccess); },
    };
    for (std::size_t last = 0; last < std::size(steps); ++last) {
        for (std::size_t i = 0; i <= last; ++i)
            steps[i]();
        device.reset();
        EXPECT_EQ(TakeReport(), "") << last;
        EXPECT_TRUE(Eventually([&] { return RadioSays("\"connected\":false"); })) << last;
    }
}

TEST_F(WinrtDongle, CanDiscoverItsServicesAgain) {
    Open();
    ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
    ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
    EXPECT_TRUE(device->SelectService(kServiceUuid));
}

TEST_F(WinrtDongle, CannotSelectAMissingService) {
    simulator.Command(R"(radio {"service": false})");
    Open();
    ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
    EXPECT_FALSE(device->SelectService(kServiceUuid));
}

TEST_F(WinrtDongle, CannotSelectAMissingCharacteristic) {
    simulator.Command(R"(radio {"characteristic": false})");
    Open();
    ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
    ASSERT_TRUE(device->SelectService(kServiceUuid));
    ASSERT_EQ(device->DiscoverCharacteristics(), BleStatus::kSuccess);
    EXPECT_FALSE(device->SelectCharacteristic(kCharacteristicUuid));
}

TEST_F(WinrtDongle, ReturnsTheStatusOfEachStep) {
    simulator.Command(R"(radio {"services_status": 3})");
    Open();
    EXPECT_EQ(device->DiscoverServices(), BleStatus::kAccessDenied);
    simulator.Command(R"(radio {"services_status": 0, "characteristics_status": 1})");
    ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
    ASSERT_TRUE(device->SelectService(kServiceUuid));
    EXPECT_EQ(device->DiscoverCharacteristics(), BleStatus::kUnreachable);
    simulator.Command(R"(radio {"characteristics_status": 0, "subscribe_status": 2})");
    ASSERT_EQ(device->DiscoverCharacteristics(), BleStatus::kSuccess);
    ASSERT_TRUE(device->SelectCharacteristic(kCharacteristicUuid));
    EXPECT_EQ(device->Subscribe(record), BleStatus::kProtocolError);
}

TEST_F(WinrtDongle, IsUnreachableWhenItRefuses) {
    simulator.Command(R"(radio {"refuse": "busy elsewhere"})");
    Open();
    EXPECT_EQ(device->DiscoverServices(), BleStatus::kUnreachable);
}

// ---------------------------------------------------------------- writing

TEST_F(WinrtDongle, ReturnsTheStatusOfAWrite) {
    Connect();
    simulator.Command(R"(radio {"write_status": 3})");
    EXPECT_EQ(WriteIden(), BleStatus::kAccessDenied);
    simulator.Command(R"(radio {"write_status": 0})");
    EXPECT_EQ(WriteIden(), BleStatus::kSuccess);
}

// A packet of `size` bytes that the dongle accepts without an answer.
std::string PacketOf(std::size_t size) {
    std::string packet("NEDI\0\0\0\0", 8);
    packet[4] = static_cast<char>(size);
    packet.resize(size);
    return packet;
}

TEST_F(WinrtDongle, AcceptsAWriteThatJustFitsTheConnection) {
    simulator.Command(R"(radio {"mtu": 50})");
    Connect();
    EXPECT_EQ(Write(PacketOf(47)), BleStatus::kSuccess);
    EXPECT_TRUE(simulator.WaitFor(1, "in IDEN"));
}

TEST_F(WinrtDongle, FailsAWriteThatDoesNotFitTheConnectionAndSendsNothing) {
    simulator.Command(R"(radio {"mtu": 50})");
    Connect();
    EXPECT_EQ(Write(PacketOf(48)), BleStatus::kProtocolError);
    EXPECT_EQ(WriteIden(), BleStatus::kSuccess);
    EXPECT_TRUE(simulator.WaitFor(1, "in IDEN"));
    EXPECT_EQ(simulator.Count("in IDEN"), 1u);
}

// ---------------------------------------------------------------- the size of PDUs

constexpr std::size_t kLargestPacket = 244;

TEST_F(WinrtDongle, WaitsUntilTheSystemKnowsTheSizeOfPdus) {
    for (int i = 0; i < 3; ++i)
        PlanFault("get_MaxPduSize", "value 23");
    Connect();
    EXPECT_EQ(Write(PacketOf(kLargestPacket)), BleStatus::kSuccess);
}

TEST_F(WinrtDongle, ConnectsADongleThatStaysWithTheSmallestPdus) {
    WinrtLimits limits = LibraryWinrtLimits();
    limits.pdu_wait_ms = 100;
    UseRadio(limits);
    simulator.Command(R"(radio {"mtu": 23})");
    Connect();
    EXPECT_EQ(Write(PacketOf(20)), BleStatus::kSuccess);
    EXPECT_EQ(Write(PacketOf(21)), BleStatus::kProtocolError);
}

TEST_F(WinrtDongle, CancelConnectingEndsTheWaitForTheSizeOfPdus) {
    WinrtLimits limits = LibraryWinrtLimits();
    limits.pdu_wait_ms = 60'000;
    UseRadio(limits);
    simulator.Command(R"(radio {"mtu": 23})");
    Open();
    ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
    ASSERT_TRUE(device->SelectService(kServiceUuid));
    ASSERT_EQ(device->DiscoverCharacteristics(), BleStatus::kSuccess);
    ASSERT_TRUE(device->SelectCharacteristic(kCharacteristicUuid));
    conformance::Thread giver_up([&] {
        ASSERT_TRUE(Eventually([&] { return RadioSays("\"subscribed\":true"); }));
        radio->CancelConnecting();
    });
    EXPECT_EQ(ErrorOf([&] { device->Subscribe(record); }), "The operation was given up");
    EXPECT_TRUE(RadioSays("\"subscribed\":false"));
}

TEST_F(WinrtDongle, LossEndsTheWaitForTheSizeOfPdus) {
    WinrtLimits limits = LibraryWinrtLimits();
    limits.pdu_wait_ms = 60'000;
    UseRadio(limits);
    simulator.Command(R"(radio {"mtu": 23})");
    conformance::Gate ended;
    conformance::Thread losing([&] {
        ASSERT_TRUE(Eventually([&] { return RadioSays("\"subscribed\":true"); }));
        simulator.Command("lose");
        EXPECT_TRUE(ended.Wait());
    });
    Connect();
    ended.Open();
    EXPECT_TRUE(Eventually([&] { return record.Losses() == 1; }));
}

// ---------------------------------------------------------------- loss

TEST_F(WinrtDongle, ReportsALossOnceAndThenFailsWrites) {
    Connect();
    simulator.Command("lose");
    ASSERT_TRUE(Eventually([&] { return record.Losses() > 0; }));
    EXPECT_EQ(WriteIden(), BleStatus::kUnreachable);
    device.reset();
    EXPECT_EQ(TakeReport(), "");
    EXPECT_EQ(record.Losses(), 1);
}

TEST_F(WinrtDongle, CanBeOpenedAgainAfterALoss) {
    for (int round = 1; round <= 3; ++round) {
        Connect();
        simulator.Command("lose");
        ASSERT_TRUE(Eventually([&] { return record.Losses() == round; }));
        device.reset();
    }
    Connect();
    EXPECT_EQ(WriteIden(), BleStatus::kSuccess);
}

TEST_F(WinrtDongle, FailsTheNextStepWhenLostWhileConnecting) {
    Open();
    ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
    simulator.Command("lose");
    ASSERT_TRUE(device->SelectService(kServiceUuid));
    EXPECT_EQ(device->DiscoverCharacteristics(), BleStatus::kUnreachable);
}

// ---------------------------------------------------------------- handlers

// Stays in its first call until `leave` is opened.
class SlowDeviceHandler : public BleDevice::Handler {
public:
    void Notified(std::span<const std::uint8_t>) noexcept override {
        ++calls;
        entered.Open();
        leave.Wait();
    }
    void NotificationFailed(const BleError&) noexcept override {}
    void Lost() noexcept override {}

    std::atomic<int> calls{0};
    conformance::Gate entered;
    conformance::Gate leave;
};

TEST_F(WinrtDongle, ClosingWaitsForHandlersAndNoneRunsAfterIt) {
    SlowDeviceHandler handler;
    Open();
    ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
    ASSERT_TRUE(device->SelectService(kServiceUuid));
    ASSERT_EQ(device->DiscoverCharacteristics(), BleStatus::kSuccess);
    ASSERT_TRUE(device->SelectCharacteristic(kCharacteristicUuid));
    ASSERT_EQ(device->Subscribe(handler), BleStatus::kSuccess);
    simulator.Command("notify 0102");
    ASSERT_TRUE(handler.entered.Wait());
    simulator.Command("notify 0304");
    conformance::Gate closed;
    conformance::Thread closer([&] {
        radio->EnterThread();
        device.reset();
        closed.Open();
        radio->LeaveThread();
    });
    EXPECT_FALSE(closed.Wait(std::chrono::milliseconds(200)));
    handler.leave.Open();
    EXPECT_TRUE(closed.Wait());
    // The second notification comes now, and again as the last one for a removed handler.
    const int calls = handler.calls;
    EXPECT_EQ(TakeReport(), "");
    EXPECT_EQ(handler.calls, calls);
}

TEST_F(WinrtDongle, DeliversNotificationsInOrder) {
    Connect();
    for (const char* hex : {"01", "0203", "", "040506"}) {
        simulator.Command(std::string("notify ") + hex);
    }
    ASSERT_TRUE(Eventually([&] { return record.Values().size() == 4; }));
    EXPECT_EQ(record.Values(), (std::vector<std::string>{"\x01", "\x02\x03", "", "\x04\x05\x06"}));
}

}  // namespace
}  // namespace tarvik::test
