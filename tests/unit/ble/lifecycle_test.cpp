#include "unit/ble/ble_fixture.h"

namespace tarvik::test {
namespace {

class BleLifecycleTest : public BleFixture {
protected:
    void SetUp() override {
        BleFixture::SetUp();
        kBleTransport.Deinit();
    }
    static std::vector<std::string> LinesOf(void (*operation)(), std::string* console) {
        LogCapture log;
        StdoutCapture out;
        operation();
        *console = out.Text();
        return log.Lines();
    }
    using Lines = std::vector<std::string>;

    std::string console_;
};

TEST_F(BleLifecycleTest, DescriptorHasNameIdMtuAndInterface) {
    EXPECT_STREQ(kBleTransport.name, "BLE");
    EXPECT_EQ(kBleTransport.id, 3u);
    EXPECT_EQ(kBleTransport.mtu, 244u);
    EXPECT_STREQ(kBleTransport.interface_name, "Bluetooth");
    EXPECT_EQ(kBleTransport.AddressDevice, nullptr);
}

TEST_F(BleLifecycleTest, DoesAndLogsNothingWhenDisabled) {
    config.useBle = false;
    for (const auto operation :
         {kBleTransport.Init, kBleTransport.Start, kBleTransport.Stop, kBleTransport.Deinit}) {
        EXPECT_EQ(LinesOf(operation, &console_), Lines());
        EXPECT_EQ(console_, "");
    }
    LogCapture log;
    EXPECT_FALSE(kBleTransport.UpdateDevices(3'600'000, nullptr, nullptr));
    EXPECT_EQ(log.Lines(), Lines());
}

TEST_F(BleLifecycleTest, InitIsLoggedOnceAndASecondCallDoesNothing) {
    EXPECT_EQ(LinesOf(kBleTransport.Init, &console_), Lines{"[BLE] BLE subsystem initialized"});
    EXPECT_EQ(console_, "[BLE] BLE subsystem initialized\n");
    EXPECT_EQ(LinesOf(kBleTransport.Init, &console_), Lines());
    EXPECT_EQ(console_, "");
}

TEST_F(BleLifecycleTest, InitFailsWithTheMessageOfARadioThatCannotBeOpened) {
    FakeRadio::open_error = "no radio";
    EXPECT_EQ(LinesOf(kBleTransport.Init, &console_),
              Lines{"[BLE] Failed to initialize BLE: no radio"});
    EXPECT_EQ(LinesOf(kBleTransport.Start, &console_),
              Lines{"[BLE] Not initialized, cannot start"});
}

TEST_F(BleLifecycleTest, InitFailsOnAnUnknownException) {
    FakeRadio::open_foreign = true;
    EXPECT_EQ(LinesOf(kBleTransport.Init, &console_),
              Lines{"[BLE] Failed to initialize BLE: Unknown error"});
    EXPECT_EQ(console_, "");
}

TEST_F(BleLifecycleTest, InitSucceedsOnceTheRadioWorks) {
    FakeRadio::open_error = "no radio";
    kBleTransport.Init();
    FakeRadio::open_error = "";
    EXPECT_EQ(LinesOf(kBleTransport.Init, &console_), Lines{"[BLE] BLE subsystem initialized"});
}

TEST_F(BleLifecycleTest, StartIsLogged) {
    kBleTransport.Init();
    EXPECT_EQ(LinesOf(kBleTransport.Start, &console_), Lines{"[BLE] BLE subsystem started"});
    EXPECT_EQ(console_, "[BLE] BLE subsystem started\n");
}

TEST_F(BleLifecycleTest, StartBeforeInitIsRefused) {
    EXPECT_EQ(LinesOf(kBleTransport.Start, &console_),
              Lines{"[BLE] Not initialized, cannot start"});
    EXPECT_EQ(console_, "");
}

TEST_F(BleLifecycleTest, ScanBeforeInitIsRefused) {
    LogCapture log;
    EXPECT_FALSE(kBleTransport.UpdateDevices(3'600'000, nullptr, nullptr));
    EXPECT_EQ(log.Lines(), Lines{"[BLE] Not initialized"});
}

TEST_F(BleLifecycleTest, StopKeepsConnections) {
    kBleTransport.Init();
    const auto dongle = FakeRadio::Add();
    LogCapture log;
    DeviceQueues* queues = Connect();
    EXPECT_TRUE(Eventually([&] {
        return log.Has("[BLE] TX thread started") && log.Has("[BLE] RX thread started") &&
               log.Has("[BLE-TX] Sent 8 bytes");
    }));
    EXPECT_EQ(LinesOf(kBleTransport.Stop, &console_), Lines{"[BLE] BLE subsystem stopped"});
    EXPECT_EQ(console_, "[BLE] BLE subsystem stopped (connections remain active)\n");
    EXPECT_TRUE(dongle->IsOpen());
    PacketPtr identify = MakePacket(kTypeIden, MIN_PKT_SIZE);
    EXPECT_TRUE(EnqueueTransmitPacket(queues, identify));
    EXPECT_NE(Arrives(queues, kTypeLogn), nullptr);
}

TEST_F(BleLifecycleTest, DeinitLogsItsSteps) {
    kBleTransport.Init();
    EXPECT_EQ(
        LinesOf(kBleTransport.Deinit, &console_),
        (Lines{"[BLE] BLE subsystem stopped", "[BLE] Deleted CRITICAL_SECTION BleCriticalSection",
               "[BLE] BLE subsystem deinitialized"}));
    EXPECT_EQ(console_,
              "[BLE] BLE subsystem stopped (connections remain active)\n"
              "[BLE] BLE subsystem deinitialized\n");
    EXPECT_EQ(LinesOf(kBleTransport.Deinit, &console_), Lines());
}

TEST_F(BleLifecycleTest, DeinitClosesEveryConnection) {
    kBleTransport.Init();
    const auto one = FakeRadio::Add(1);
    const auto other = FakeRadio::Add(2);
    const auto reports = Scan();
    ASSERT_EQ(reports.size(), 2u);
    LogCapture log;
    kBleTransport.Deinit();
    // A thread that is still running keeps its dongle open.
    EXPECT_TRUE(Eventually([&] { return !one->IsOpen() && !other->IsOpen(); }));
    for (const DeviceReport& report : reports) {
        EXPECT_FALSE(report.queues->available);
        EXPECT_FALSE(report.queues->rx.active);
        EXPECT_FALSE(report.queues->tx.active);
    }
    EXPECT_EQ(log.Count("[BLE] TX thread exiting"), 2u);
    EXPECT_EQ(log.Count("[BLE] RX thread exiting"), 2u);
}

TEST_F(BleLifecycleTest, DeinitEndsARunningScan) {
    kBleTransport.Init();
    LogCapture log;
    Thread scan([] { EXPECT_EQ(Scan(3'600'000).size(), 0u); });
    ASSERT_TRUE(Eventually([&] { return log.Has("[BLE] Started BLE scanning, status: 1"); }));
    kBleTransport.Deinit();
    scan.Join();
}

TEST_F(BleLifecycleTest, DeinitGivesUpAnAttemptToConnect) {
    kBleTransport.Init();
    const auto dongle = FakeRadio::Add();
    dongle->HoldOpening();
    LogCapture log;
    Thread scan([] { EXPECT_EQ(Scan().size(), 0u); });
    ASSERT_TRUE(Eventually([&] { return dongle->IsOpening(); }));
    kBleTransport.Deinit();
    scan.Join();
    EXPECT_EQ(FakeRadio::cancelled, 1);
    EXPECT_FALSE(log.Has("[BLE] Device connected and ready"));
    EXPECT_EQ(ConnectedCount(), 0u);
}

TEST_F(BleLifecycleTest, DeinitLeavesTheOtherDonglesOfAScanAlone) {
    kBleTransport.Init();
    const auto one = FakeRadio::Add();
    const auto other = FakeRadio::Add(kAddress + 1);
    one->HoldOpening();
    other->HoldOpening();
    LogCapture log;
    Thread scan([] { EXPECT_EQ(Scan().size(), 0u); });
    ASSERT_TRUE(Eventually([&] { return one->IsOpening() || other->IsOpening(); }));
    kBleTransport.Deinit();
    scan.Join();
    std::size_t tried = 0;
    for (const std::string& line : log.Lines())
        tried += line.starts_with("[BLE] Connecting to device: ") ? 1u : 0u;
    EXPECT_EQ(tried, 1u);
}

TEST_F(BleLifecycleTest, DongleIsFoundAgainAfterDeinitAndInit) {
    kBleTransport.Init();
    const auto dongle = FakeRadio::Add();
    const DeviceQueues* before = Connect();
    kBleTransport.Deinit();
    kBleTransport.Init();
    EXPECT_EQ(Connect(), before);
    EXPECT_EQ(dongle->OpenCount(), 2);
}

}  // namespace
}  // namespace tarvik::test
