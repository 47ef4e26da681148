#include <sstream>

#include "transport/ble/ble_connect.h"
#include "transport/ble/ble_limits.h"
#include "unit/ble/ble_fixture.h"
#include "unit/faults/event_fault.h"
#include "unit/faults/thread_start_fault.h"

namespace tarvik::test {
namespace {

class BleScanTest : public BleFixture {
protected:
    // The console without its lines about packets, which other threads print.
    static std::string WithoutTraffic(const std::string& console) {
        std::istringstream lines(console);
        std::string kept;
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("[BLE-", 0) != 0) kept += line + "\n";
        }
        return kept;
    }
    static std::size_t CountOf(const LogCapture& log, const std::string& beginning) {
        const auto lines = log.Lines();
        return static_cast<std::size_t>(
            std::count_if(lines.begin(), lines.end(),
                          [&](const std::string& line) { return line.rfind(beginning, 0) == 0; }));
    }
    // "%p" as the library prints it.
    static std::string Pointer(const void* pointer) {
        char text[40];
        FormatText(text, sizeof text, "%p", pointer);
        return text;
    }
};

// The tick does not move unless a test moves it.
class BleTickTest : public BleScanTest {
protected:
    // The scan, the only reader of the tick here, has read its present value and continues to wait.
    // Its first read may have been before the tick was moved.
    bool ScanGoesOnWaiting() const {
        const std::uint64_t before = tick_.Reads();
        return Eventually([&] { return tick_.Reads() >= before + 3; });
    }

    FakeTick tick_{1000};
};

constexpr char kScanBegin[] =
    "[BLE] Scanning for devices (timeout: 1 ms)...\n"
    "[BLE] Clearing previous scan data (0 discovered, 0 pending)\n"
    "[BLE] Starting watcher...\n";

TEST_F(BleScanTest, ReportsNothingWithoutDongles) {
    LogCapture log;
    StdoutCapture console;
    EXPECT_TRUE(kBleTransport.UpdateDevices(kScanMs, nullptr, nullptr));
    EXPECT_EQ(console.Text(), std::string(kScanBegin) +
                                  "[BLE] Watcher status: 1\n"
                                  "[BLE] Scan complete, found 0 device(s)\n"
                                  "[BLE] Checking 0 already-connected device(s)...\n"
                                  "[BLE] Device scan complete: 0 device(s) added\n");
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                               "[BLE] BleUpdateDevices: scanning for devices (timeout: 1 ms)",
                               "[BLE] Started BLE scanning, status: 1",
                               "[BLE] Stopped BLE scanning, found 0 potential devices",
                               "[BLE] BleUpdateDevices complete, added 0 devices"}));
}

TEST_F(BleScanTest, NewDongleIsConnectedAskedAndReported) {
    const auto dongle = FakeRadio::Add();
    LogCapture log;
    StdoutCapture console;
    const auto reports = Scan();
    const std::string text = WithoutTraffic(console.Text());
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].transport, 3u);
    const PacketPtr login = LoginOf("Test dongle");
    EXPECT_TRUE(std::equal(login->Bytes(), login->Bytes() + kLoginSize, reports[0].login.bytes));
    EXPECT_TRUE(reports[0].queues->available);
    EXPECT_EQ(reports[0].queues->mtu, 244u);
    EXPECT_EQ(dongle->Received(), std::vector<Bytes>{BytesOf(PacketOf(kTypeIden, {}))});

    const std::string queues = Pointer(reports[0].queues);
    for (const std::string& line :
         {std::string(kScanBegin) + "[BLE] Found Brennix: A0:B1:C2:D3:E4:F5 (RSSI: -57 dBm)\n" +
              "[BLE] Watcher status: 1\n"
              "[BLE] Scan complete, found 1 device(s)\n"
              "[BLE] Checking 0 already-connected device(s)...\n"
              "[BLE] Connecting to A0:B1:C2:D3:E4:F5...\n"
              "  Connecting to BLE device...\n"
              "  Getting GATT services...\n"
              "  Searching for target service...\n"
              "  Target service found\n"
              "  Getting characteristics...\n"
              "  Target characteristic found\n"
              "  Notifications enabled\n"
              "  Starting TX/RX threads...\n"
              "  Connection complete, queues=" +
              queues + "\n" + "[BLE] Thread completed, success=1, queues=" + queues + "\n",
          std::string("[BLE] Received: 'Test dongle' with mac 10:21:32:43:54:65\n"
                      "[BLE] Connected successfully\n"
                      "[BLE] Device scan complete: 1 device(s) added\n")}) {
        EXPECT_TRUE(Contains(text, line)) << line << "---- in ----\n" << text;
    }
    for (const char* line :
         {"[BLE] Found Brennix device: A0:B1:C2:D3:E4:F5, RSSI: -57 dBm",
          "[BLE] Stopped BLE scanning, found 1 potential devices",
          "[BLE] Connecting to device: A0:B1:C2:D3:E4:F5", "[BLE] Found target characteristic",
          "[BLE] Notifications enabled", "[BLE] Device connected and ready",
          "[BLE] Successfully connected and added device",
          "[BLE] BleUpdateDevices complete, added 1 devices"}) {
        EXPECT_EQ(log.Count(line), 1u) << line;
    }
}

TEST_F(BleScanTest, QueuesAreInitializedBeforeTheDongleIsOpened) {
    const auto dongle = FakeRadio::Add();
    dongle->HoldOpening();
    LogCapture log;
    Thread scan([] { EXPECT_EQ(Scan().size(), 1u); });
    EXPECT_TRUE(Eventually([&] { return dongle->IsOpening(); }));
    EXPECT_EQ(CountOf(log, "[InitializeQueue] Initialized"), 2u);
    dongle->ReleaseOpening();
    scan.Join();
}

TEST_F(BleScanTest, EveryDongleInRangeIsReported) {
    for (std::uint64_t address = 1; address <= 3; ++address)
        FakeRadio::Add(address);
    EXPECT_EQ(Scan().size(), 3u);
    EXPECT_EQ(Scan().size(), 3u) << "in the next scan";
}

TEST_F(BleScanTest, DongleThatAdvertisesTwiceIsConnectedOnce) {
    const auto dongle = FakeRadio::Add();
    dongle->advertisements = 2;
    LogCapture log;
    EXPECT_EQ(Scan().size(), 1u);
    EXPECT_EQ(dongle->OpenCount(), 1);
    EXPECT_EQ(log.Count("[BLE] Found Brennix device: A0:B1:C2:D3:E4:F5, RSSI: -57 dBm"), 1u);
}

TEST_F(BleScanTest, NamesOtherThanTheProductNameAreIgnored) {
    const auto dongle = FakeRadio::Add();
    for (const std::string& name :
         {std::string(), std::string("Brenni"), std::string("Brennix2"), std::string("brennix"),
          std::string("Brennix\0", 8), std::string(" Brennix")}) {
        dongle->name = name;
        EXPECT_EQ(Scan().size(), 0u) << name;
    }
    EXPECT_EQ(dongle->OpenCount(), 0);
}

TEST_F(BleScanTest, DongleIsFoundByTheNameInItsSecondAdvertisement) {
    FakeRadio::Add()->name = "";  // the advertisement; the scan response has the name
    FakeRadio::Add();
    EXPECT_EQ(Scan().size(), 1u);
}

TEST_F(BleScanTest, ConsoleCountsTheClearedDataOfThePreviousScan) {
    FakeRadio::Add();
    Scan();
    StdoutCapture console;
    Scan();
    EXPECT_TRUE(
        Contains(console.Text(), "[BLE] Clearing previous scan data (1 discovered, 0 pending)\n"));
}

TEST_F(BleScanTest, UnreadableAdvertisementIsLogged) {
    FakeRadio::advertisement_error = "no bytes";
    LogCapture log;
    EXPECT_EQ(Scan().size(), 0u);
    EXPECT_TRUE(log.Has("[BLE] Error in advertisement callback: no bytes"));
}

TEST_F(BleScanTest, DongleIsFoundAlthoughTheSystemBeginsLate) {
    FakeRadio::Add();
    FakeRadio::begins_late = true;
    EXPECT_EQ(Scan().size(), 1u);
}

TEST_F(BleScanTest, PolledRadioIsToldTheRestOfTheScansTime) {
    constexpr std::uint32_t kLongScanMs = 50;
    Scan(kLongScanMs);
    EXPECT_LT(FakeRadio::longest_left, kLongScanMs);
}

TEST_F(BleScanTest, RadioThatCannotScanFailsOnlyThisScan) {
    FakeRadio::Add();
    for (std::string* error :
         {&FakeRadio::create_error, &FakeRadio::start_error, &FakeRadio::enter_error}) {
        *error = "switched off";
        LogCapture log;
        EXPECT_EQ(Scan().size(), 0u);
        EXPECT_TRUE(log.Has("[BLE] BLE scanning failed: switched off"));
        EXPECT_FALSE(log.Mentions("BleUpdateDevices complete"));
        *error = "";
    }
    EXPECT_EQ(Scan().size(), 1u);
}

TEST_F(BleTickTest, ScanListensForItsWholeTime) {
    LogCapture log;
    Thread scan([] { EXPECT_EQ(Scan(2'000).size(), 0u); });
    EXPECT_TRUE(Eventually([&] { return log.Has("[BLE] Started BLE scanning, status: 1"); }));
    EXPECT_TRUE(ScanGoesOnWaiting());
    tick_.Advance(1'999);
    EXPECT_TRUE(ScanGoesOnWaiting());
    EXPECT_FALSE(log.Mentions("[BLE] Stopped BLE scanning"));
    tick_.Advance(1);
    scan.Join();
    EXPECT_TRUE(log.Has("[BLE] Stopped BLE scanning, found 0 potential devices"));
}

// Scans, and lets so much time pass when the first dongle is reported.
std::size_t ScanWithPauseAfterTheFirst(FakeTick* tick, std::uint64_t pause_ms) {
    struct Context {
        FakeTick* tick;
        std::uint64_t pause_ms;
        std::size_t reports = 0;
    } context{tick, pause_ms};
    const auto report = [](void* untyped, const DeviceReport&) {
        auto* to = static_cast<Context*>(untyped);
        if (++to->reports == 1) to->tick->Advance(to->pause_ms);
    };
    EXPECT_TRUE(kBleTransport.UpdateDevices(0, report, &context));
    return context.reports;
}

TEST_F(BleTickTest, DongleWhoseTurnComesWithinAMinuteIsConnected) {
    FakeRadio::Add(1);
    FakeRadio::Add(2);
    EXPECT_EQ(ScanWithPauseAfterTheFirst(&tick_, 59'999), 2u);
}

TEST_F(BleTickTest, DongleWhoseTurnComesAfterAMinuteIsLeftToTheNextScan) {
    const auto one = FakeRadio::Add(1);
    const auto another = FakeRadio::Add(2);
    const auto third = FakeRadio::Add(3);
    LogCapture log;
    EXPECT_EQ(ScanWithPauseAfterTheFirst(&tick_, 60'000), 1u);
    // They advertise in any order.
    EXPECT_EQ(one->OpenCount() + another->OpenCount() + third->OpenCount(), 1);
    EXPECT_EQ(log.Count("[BLE] Connecting takes too long, the other devices are left out"), 1u);
    EXPECT_EQ(Scan(0).size(), 3u);
}

// ---------------------------------------------------------------- already connected

TEST_F(BleScanTest, ConnectedDongleThatStillAdvertisesIsNotConnectedAgain) {
    const auto dongle = FakeRadio::Add();
    const DeviceQueues* queues = Connect();
    StdoutCapture console;
    EXPECT_EQ(Connect(), queues);
    EXPECT_EQ(dongle->OpenCount(), 1);
    EXPECT_EQ(ConnectedCount(), 1u);
    EXPECT_TRUE(Contains(console.Text(), "[BLE] Checking 1 already-connected device(s)...\n"));
    EXPECT_TRUE(
        Contains(console.Text(), "[BLE] Already connected: 'Test dongle' at A0:B1:C2:D3:E4:F5\n"));
    EXPECT_FALSE(Contains(console.Text(), "[BLE] Connecting to"));
    EXPECT_TRUE(Contains(console.Text(), "[BLE] Device scan complete: 1 device(s) added\n"));
}

// ---------------------------------------------------------------- no login

class BleLoginWait : public BleTickTest {
protected:
    void SetUp() override {
        BleTickTest::SetUp();
        dongle_ = FakeRadio::Add();
    }
    // A scan that lets the wait for a login run out after the dongle has handled the IDEN.
    void ScanWithoutLogin() {
        const std::size_t handled = dongle_->HandledCount();
        std::atomic<bool> done{false};
        Thread scan([&] {
            EXPECT_EQ(Scan(0).size(), 0u);
            done = true;
        });
        EXPECT_TRUE(Eventually([&] { return dongle_->HandledCount() == handled + 1; }));
        EXPECT_FALSE(done);
        EXPECT_TRUE(Eventually([&] {
            tick_.Advance(GetBleLimits().login_wait_ms);
            return done.load();
        }));
    }

    std::shared_ptr<FakeDongle> dongle_ = nullptr;
};

TEST_F(BleLoginWait, ConnectedDongleThatDoesNotAnswerIsNotReportedButKept) {
    EXPECT_EQ(Scan(0).size(), 1u);
    ASSERT_TRUE(Eventually([&] { return dongle_->HandledCount() == 1; }));
    dongle_->AnswerNothing();
    ScanWithoutLogin();
    EXPECT_TRUE(dongle_->IsOpen());
    EXPECT_EQ(dongle_->OpenCount(), 1);
}

TEST_F(BleLoginWait, DongleThatAnswersBusyIsNotReported) {
    dongle_->Behave([](FakeDongle& self, const Bytes&) { self.Send(BusyFor(0)); });
    LogCapture log;
    StdoutCapture console;
    ScanWithoutLogin();
    EXPECT_TRUE(Contains(console.Text(), "[BLE] Device busy\n"));
    EXPECT_TRUE(log.Has("[BLE] Device returned BUSY"));
    EXPECT_FALSE(Contains(console.Text(), "No login response"));
    EXPECT_TRUE(Contains(console.Text(), "[BLE] Device scan complete: 0 device(s) added\n"));
}

TEST_F(BleLoginWait, DongleWithoutALoginIsNotReported) {
    dongle_->AnswerNothing();
    LogCapture log;
    StdoutCapture console;
    ScanWithoutLogin();
    EXPECT_TRUE(Contains(console.Text(), "[BLE] No login response received\n"));
    EXPECT_TRUE(log.Has("[BLE] Timeout waiting for login packet"));
}

// ---------------------------------------------------------------- failing to connect

struct FailureCase {
    const char* name;
    Fault fault;
    std::string console;
    std::string log;
};
void PrintTo(const FailureCase& failure, std::ostream* out) { *out << failure.name; }

class BleConnectFailure : public BleScanTest, public testing::WithParamInterface<FailureCase> {};

TEST_P(BleConnectFailure, IsLoggedAndLeavesNothingBehind) {
    const FailureCase& failure = GetParam();
    const auto dongle = FakeRadio::Add();
    dongle->Fail(failure.fault);
    LogCapture log;
    {
        StdoutCapture console;
        EXPECT_EQ(Scan().size(), 0u);
        EXPECT_TRUE(Contains(console.Text(), failure.console)) << console.Text();
        EXPECT_TRUE(Contains(console.Text(), "[BLE] Thread completed, success=0, queues=" +
                                                 Pointer(nullptr) + "\n[BLE] Connection failed\n"));
    }
    EXPECT_TRUE(log.Has(failure.log)) << log.Text();
    EXPECT_TRUE(log.Has("[BLE] Failed to connect to device"));
    EXPECT_EQ(CountOf(log, "[InitializeQueue] Initialized"), 2u);
    EXPECT_EQ(CountOf(log, "[FreeQueue] Deleting"), 2u);
    EXPECT_FALSE(dongle->IsOpen());
    EXPECT_EQ(ConnectedCount(), 0u);
    dongle->Work();
    EXPECT_EQ(Scan().size(), 1u) << "the next scan tries again";
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, BleConnectFailure,
    testing::Values(FailureCase{"NotReachable",
                                {.step = Step::kOpen, .refuse = true},
                                "  ERROR: Failed to connect to device\n",
                                "[BLE] Failed to connect to device"},
                    FailureCase{"OpeningThrows",
                                {.step = Step::kOpen, .error = "gone"},
                                "  ERROR: Connection exception: gone\n",
                                "[BLE] Connection error: gone"},
                    FailureCase{"UnknownException",
                                {.step = Step::kOpen, .foreign = true},
                                "  ERROR: Connection exception: Unknown error\n",
                                "[BLE] Connection error: Unknown error"},
                    FailureCase{"NoServices",
                                {.step = Step::kServices, .status = BleStatus::kUnreachable},
                                "  ERROR: Failed to get GATT services (status: 1)\n",
                                "[BLE] Failed to get GATT services"},
                    FailureCase{"ServicesThrow",
                                {.step = Step::kServices, .error = "late"},
                                "  ERROR: Connection exception: late\n",
                                "[BLE] Connection error: late"},
                    FailureCase{"OtherService",
                                {.step = Step::kSelectService, .refuse = true},
                                "  ERROR: Target service not found\n",
                                "[BLE] Target service not found"},
                    FailureCase{
                        "NoCharacteristics",
                        {.step = Step::kCharacteristics, .status = BleStatus::kAccessDenied},
                        "  ERROR: Failed to get characteristics (status: 3)\n",
                        "[BLE] Failed to get characteristics"},
                    FailureCase{"OtherCharacteristic",
                                {.step = Step::kSelectCharacteristic, .refuse = true},
                                "  ERROR: Target characteristic not found\n",
                                "[BLE] Target characteristic not found"},
                    FailureCase{"NoNotifications",
                                {.step = Step::kSubscribe, .status = BleStatus::kProtocolError},
                                "  ERROR: Failed to enable notifications (status: 2)\n",
                                "[BLE] Failed to enable notifications"}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(BleScanTest, ConnectionThreadThatCannotBeStartedFailsTheAttempt) {
    const auto dongle = FakeRadio::Add();
    for (const char* thread : {"Tarvik BleTxThreadFunc", "Tarvik BleRxThreadFunc"}) {
        const ThreadStartFault fault(thread, 11);
        LogCapture log;
        EXPECT_EQ(Scan().size(), 0u);
        EXPECT_TRUE(log.Mentions("X thread: 11"));
        EXPECT_TRUE(Eventually([&] { return !dongle->IsOpen(); }));  // with its last thread
        EXPECT_EQ(log.Count("[BLE] TX thread started"), log.Count("[BLE] TX thread exiting"));
        EXPECT_EQ(ConnectedCount(), 0u);
    }
    EXPECT_EQ(Scan().size(), 1u);
}

TEST_F(BleScanTest, ConnectThreadThatCannotBeStartedIsLogged) {
    FakeRadio::Add();
    {
        const ThreadStartFault fault("Tarvik BleConnectThread", 11);
        LogCapture log;
        EXPECT_EQ(Scan().size(), 0u);
        EXPECT_TRUE(log.Has("[BLE] Failed to create connection thread"));
    }
    EXPECT_EQ(Scan().size(), 1u);
}

TEST_F(BleScanTest, CompletionEventThatCannotBeCreatedIsLogged) {
    FakeRadio::Add();
    {
        const EventFault fault;
        LogCapture log;
        EXPECT_EQ(Scan().size(), 0u);
        EXPECT_TRUE(log.Has("[BLE] Failed to create completion event"));
        EXPECT_TRUE(log.Has("[BLE] BleUpdateDevices complete, added 0 devices"));
    }
    EXPECT_EQ(Scan().size(), 1u);
}

// ---------------------------------------------------------------- slow connections

class BleSlowConnection : public BleTickTest {
protected:
    // A scan while the tick follows real time.
    std::vector<DeviceReport> ScanInTime() {
        std::atomic<bool> done{false};
        Thread clock([&] {
            while (!done) {
                tick_.Advance(1);
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
        auto reports = Scan();
        done = true;
        return reports;
    }
    // A scan that gives up waiting for a dongle that is still being opened. Its wait begins within
    // the last millisecond before the tick stops.
    void GiveUp() {
        dongle_->HoldOpening();
        StdoutCapture console;
        Thread scan([] { EXPECT_EQ(Scan().size(), 0u); });
        EXPECT_TRUE(Eventually([&] {
            tick_.Advance(1);
            return log_.Has("[BLE] Connecting to device: A0:B1:C2:D3:E4:F5");
        }));
        EXPECT_TRUE(Eventually([&] { return dongle_->IsOpening(); }));
        EXPECT_TRUE(ScanGoesOnWaiting());
        tick_.Advance(29'998);
        EXPECT_TRUE(ScanGoesOnWaiting());
        EXPECT_FALSE(log_.Has("[BLE] Connection timeout"));
        tick_.Advance(2);
        scan.Join();
        console_ = console.Text();
    }
    void TearDown() override {
        dongle_->ReleaseOpening();
        BleTickTest::TearDown();
    }
    bool BecomesReady() const {
        return Eventually([&] { return log_.Has("[BLE] Device connected and ready"); });
    }
    // The attempt that the scan has given up waiting for is complete; the next scan removes it.
    static bool AttemptEnds() {
        return Eventually([] {
            const LockGuard hold(ble->BleCriticalSection);
            return ble->attempts.size() == 1 && OsEventWait(ble->attempts[0]->completed, 0);
        });
    }
    LogCapture log_;
    std::shared_ptr<FakeDongle> dongle_ = nullptr;
    std::string console_;

    void SetUp() override {
        BleTickTest::SetUp();
        dongle_ = FakeRadio::Add();
    }
};

TEST_F(BleSlowConnection, EndsTheScansWaitAfterThirtySecondsAndNotBefore) {
    GiveUp();
    EXPECT_TRUE(Contains(console_, "[BLE] Connection timeout (wait result: 258)\n"));
    EXPECT_TRUE(log_.Has("[BLE] Connection timeout"));
    EXPECT_TRUE(Contains(console_, "[BLE] Device scan complete: 0 device(s) added\n"));
}

TEST_F(BleSlowConnection, IsFoundByTheNextScanIfItSucceedsLater) {
    GiveUp();
    dongle_->ReleaseOpening();
    ASSERT_TRUE(BecomesReady());
    ASSERT_TRUE(AttemptEnds());
    EXPECT_EQ(ScanInTime().size(), 1u);
    EXPECT_EQ(dongle_->OpenCount(), 1);
}

TEST_F(BleSlowConnection, IsTriedAgainByTheNextScanIfItFailsLater) {
    GiveUp();
    dongle_->Fail({.step = Step::kOpen, .refuse = true});
    dongle_->ReleaseOpening();
    ASSERT_TRUE(AttemptEnds());
    EXPECT_TRUE(log_.Has("[BLE] Failed to connect to device"));
    dongle_->Work();
    EXPECT_EQ(ScanInTime().size(), 1u);
}

TEST_F(BleSlowConnection, DoesNotDelayAnotherDongle) {
    GiveUp();
    FakeRadio::Remove(dongle_);  // out of range, but its attempt continues
    const auto other = FakeRadio::Add(kAddress + 1);
    EXPECT_EQ(ScanInTime().size(), 1u);
    EXPECT_EQ(other->OpenCount(), 1);
    EXPECT_TRUE(dongle_->IsOpening());
}

TEST_F(BleSlowConnection, IsNotStartedTwice) {
    GiveUp();
    Thread scan([this] { EXPECT_EQ(ScanInTime().size(), 1u); });
    ASSERT_TRUE(Eventually(
        [&] { return log_.Count("[BLE] Connecting to device: A0:B1:C2:D3:E4:F5") == 2; }));
    dongle_->ReleaseOpening();
    scan.Join();
    EXPECT_EQ(dongle_->OpenCount(), 1);
}

}  // namespace
}  // namespace tarvik::test
