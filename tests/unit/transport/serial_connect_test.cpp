#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <thread>

#include "link/fragmentation.h"
#include "link/packet_queue.h"
#include "transport/serial/serial_port_threads.h"
#include "unit/faults/thread_start_fault.h"
#include "unit/transport/serial_fixture.h"

namespace tarvik::test {
namespace {

constexpr SerialLimits kImpatientLimits = [] {
    SerialLimits limits = kPatientLimits;
    limits.sync_wait_ms = 1;
    return limits;
}();

constexpr SerialLimits kSleepyLimits = [] {
    constexpr std::int32_t kOneHourMs = 3'600'000;
    SerialLimits limits = kPatientLimits;
    limits.scan_pause_ms = kOneHourMs;
    limits.receive_poll_ms = kOneHourMs;
    limits.monitor_poll_ms = kOneHourMs;
    return limits;
}();

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class SerialConnectTest : public SerialFixture {
protected:
    // The transport has started, and its port has failed because it could not be opened.
    static std::shared_ptr<FakePort> StartWithRefusedPort(std::int32_t number) {
        const auto port = FakePort::Plug(number);
        port->open_error = 5;
        kSerialTransport.Start();
        EXPECT_TRUE(Reaches(number, PortState::kFailed));
        return port;
    }
    // As above, because it did not answer.
    static std::shared_ptr<FakePort> StartWithSilentPort(std::int32_t number) {
        const UseLimits impatient(kImpatientLimits);
        const auto port = FakePort::Plug(number);
        port->AnswerNothing();
        kSerialTransport.Start();
        EXPECT_TRUE(Reaches(number, PortState::kFailed));
        return port;
    }
    static bool Unplug(std::int32_t number) {
        UnplugPort(number);
        return Reaches(number, PortState::kUnused);
    }
};

// ---------------------------------------------------------------- start and stop

TEST_F(SerialConnectTest, InitLogsItsLockOnceAndDeinitItsDeletion) {
    kSerialTransport.Deinit();
    LogCapture log;
    kSerialTransport.Init();
    kSerialTransport.Init();
    EXPECT_EQ(log.Lines().size(), 1u);
    EXPECT_TRUE(log.Mentions("[SerialInit] Initialized CRITICAL_SECTION SerialSessionLock at 0x"));
    kSerialTransport.Deinit();
    EXPECT_TRUE(log.Has("[SerialDeinit] Deleted CRITICAL_SECTION SerialSessionLock"));
    EXPECT_TRUE(log.Has("[SerialDeinit] Done"));
    const std::size_t lines = log.Lines().size();
    kSerialTransport.Deinit();
    EXPECT_EQ(log.Lines().size(), lines);
}

TEST_F(SerialConnectTest, DoesNotStartWithoutInit) {
    kSerialTransport.Deinit();
    LogCapture log;
    kSerialTransport.Start();
    EXPECT_TRUE(log.Has("[SerialStart] Start"));
    EXPECT_TRUE(log.Has("[SerialStart] Not initialized, cannot start"));
    EXPECT_FALSE(log.Mentions("Created Thread handle"));
}

TEST_F(SerialConnectTest, StartsNoThreadWhenSwitchedOff) {
    config.useSerial = false;
    const std::uint32_t scans = ScanCount();
    LogCapture log;
    kSerialTransport.Start();
    kSerialTransport.Stop();
    EXPECT_FALSE(log.Mentions("Created Thread handle"));
    EXPECT_FALSE(log.Has("[SerialStart] Done"));
    EXPECT_EQ(ScanCount(), scans);
}

TEST_F(SerialConnectTest, StartRunsOneConnectThreadAndStopEndsIt) {
    LogCapture log;
    kSerialTransport.Start();
    kSerialTransport.Start();
    EXPECT_TRUE(
        HasWithHandle(log, "[SerialStart] Created Thread handle 0x", " (SerialConnectThreadFunc)"));
    EXPECT_EQ(log.Count("[SerialStart] Done"), 1u);
    kSerialTransport.Stop();
    EXPECT_TRUE(log.Has("[SerialStop] Wait for SerialConnectThread"));
    EXPECT_TRUE(
        HasWithHandle(log, "[SerialStop] Closing Thread handle 0x", " (SerialConnectThread)"));
    EXPECT_TRUE(log.Has("[SerialStop] Done"));
    EXPECT_TRUE(log.Has("[SerialConnectThreadFunc] Waiting for all Threads"));
    EXPECT_TRUE(log.Has("[SerialConnectThreadFunc] Exiting"));
}

TEST_F(SerialConnectTest, ConnectThreadCreationFailureIsLogged) {
    LogCapture log;
    {
        ThreadStartFault fault("Tarvik SerialConnectThread", 8);
        kSerialTransport.Start();
    }
    EXPECT_TRUE(log.Has("[SerialStart] CreateThread failed"));
    EXPECT_FALSE(log.Has("[SerialStart] Done"));
    EXPECT_FALSE(kSerialTransport.UpdateDevices(10, nullptr, nullptr)) << "it does not run";
    kSerialTransport.Start();
    EXPECT_TRUE(log.Has("[SerialStart] Done"));
}

TEST_F(SerialConnectTest, KeepsScanningWhileItRuns) {
    const std::uint32_t scans = ScanCount();
    kSerialTransport.Start();
    EXPECT_TRUE(Eventually([=] { return ScanCount() >= scans + 3; }));
}

// Starts the transport, and stops it while the system does not answer a scan.
class HeldUpSerialConnectTest : public SerialFixture {
protected:
    void StopWithScanHeldUp() {
        held_up_.emplace();
        const std::uint32_t scans = ScanCount();
        EXPECT_TRUE(Eventually([=] { return ScanCount() > scans; }));
        const UseLimits limits(kShortStop);
        kSerialTransport.Stop();
        EXPECT_FALSE(log_.Has("[SerialConnectThreadFunc] Exiting"));
    }
    void Release() { held_up_.reset(); }
    static void StopWithAdviceHeldUp(const HeldUpAdvice& advice) {
        const UseLimits limits(kShortStop);
        kSerialTransport.Start();
        ASSERT_TRUE(Eventually([&] { return advice.IsAwaited(); }));
        kSerialTransport.Stop();
    }

    LogCapture log_;

private:
    static constexpr SerialLimits kShortStop = [] {
        SerialLimits limits = kPatientLimits;
        limits.connect_thread_end_ms = 1;
        limits.settle_ms = 0;
        return limits;
    }();
    std::optional<HeldUpDiscovery> held_up_;
};

TEST_F(HeldUpSerialConnectTest, PortsAreClosedWithoutTheConnectThread) {
    const auto port = Connect(kPort);
    StopWithScanHeldUp();
    EXPECT_TRUE(Closes(*port));
    EXPECT_TRUE(Reaches(kPort, PortState::kUnused));
    Release();
    EXPECT_TRUE(Eventually([&] { return log_.Has("[SerialConnectThreadFunc] Exiting"); }));
    EXPECT_EQ(port->OpenCount(), 1u);
    EXPECT_TRUE(OsAllowUnloading(10'000)) << "a thread still runs";
}

TEST_F(HeldUpSerialConnectTest, ThreadOfAnEarlierStartEndsAtItsNextLook) {
    kSerialTransport.Start();
    StopWithScanHeldUp();
    kSerialTransport.Start();
    Release();
    EXPECT_TRUE(Eventually([&] { return log_.Has("[SerialConnectThreadFunc] Exiting"); }));
    const auto port = Connect(kPort);
    kSerialTransport.Stop();
    EXPECT_EQ(log_.Count("[SerialConnectThreadFunc] Exiting"), 2u);
    EXPECT_EQ(port->OpenCount(), 1u);
}

TEST_F(HeldUpSerialConnectTest, NextStartConnectsWhileTheSystemLooksForAnAdvice) {
    FakePort::Plug(12, PortReadiness::kNoAccess)->open_error = 13;
    {
        const HeldUpAdvice advice;
        ASSERT_NO_FATAL_FAILURE(StopWithAdviceHeldUp(advice));
        Connect(kPort);
        EXPECT_TRUE(advice.IsAwaited());
    }
    EXPECT_TRUE(Eventually([&] { return log_.Has("[SerialConnectThreadFunc] Exiting"); }));
}

// The scan was about to find the port gone that the next start finds.
TEST_F(HeldUpSerialConnectTest, NextStartFindsThePortsThatTheEarlierOneHad) {
    const auto first = Connect(kPort);
    StopWithScanHeldUp();
    EXPECT_TRUE(Closes(*first));
    kSerialTransport.Start();
    Release();
    EXPECT_TRUE(Reaches(kPort, PortState::kConnected));
}

TEST_F(SerialConnectTest, MissingDeviceListIsPrintedAndRetried) {
    StdoutCapture console;
    FailDiscovery(true);
    const std::uint32_t scans = ScanCount();
    kSerialTransport.Start();
    EXPECT_TRUE(Eventually([=] { return ScanCount() >= scans + 2; }));
    FailDiscovery(false);
    Connect(3);
    kSerialTransport.Stop();
    EXPECT_TRUE(Contains(console.Text(), "Failed to get device information set\n"));
    EXPECT_TRUE(Contains(console.Text(), "COM3: Connected successfully\n"));
}

// ---------------------------------------------------------------- connecting

TEST_F(SerialConnectTest, NewDongleIsDetectedSynchronizedAndConnected) {
    StdoutCapture console;
    LogCapture log;
    const auto port = Connect(7);
    EXPECT_TRUE(QueuesOf(7)->available);
    EXPECT_EQ(QueuesOf(7)->mtu, 4096u);
    ASSERT_GE(port->Received().size(), 1u);
    EXPECT_EQ(port->Received().front(), kSyncBytes);
    kSerialTransport.Stop();

    EXPECT_EQ(console.Text(),
              "COM7: New device detected\n"
              "COM7: Connecting to new device\n"
              "COM7: Send SYNC\n"
              "Synchronized\n"
              "COM7: Connected successfully\n");
    EXPECT_TRUE(HasWithHandle(
        log, "[ConnectSerialPort] Initialized CRITICAL_SECTION for Queues at 0x", " (port 7)"));
    for (const char* function : {"SerialRxThreadFunc", "SerialTxThreadFunc", "SerialThreadFunc"}) {
        EXPECT_TRUE(HasWithHandle(log, "[ConnectSerialPort] Created Thread handle 0x",
                                  std::string(" (") + function + ") for port 7"))
            << function;
    }
    EXPECT_TRUE(log.Has("[SerialRxThreadFunc] Starting."));
    EXPECT_TRUE(log.Has("[SerialTxThreadFunc] Starting."));
    EXPECT_TRUE(HasWithHandle(log, "[SerialRxThreadFunc] Created Event handle 0x",
                              " for serial RX overlap (port 7)"));
    EXPECT_TRUE(HasWithHandle(log, "[SerialTxThreadFunc] Created Event handle 0x",
                              " for serial TX overlap (port 7)"));
    EXPECT_TRUE(log.Has("[SerialRxThreadFunc] Synchronized"));
}

TEST_F(SerialConnectTest, SyncIsLoggedWithAnExtraLineEnd) {
    LogCapture log;
    Connect(7);
    EXPECT_TRUE(log.Mentions("[SerialRxThreadFunc] Synchronized\n\n"));
}

TEST_F(SerialConnectTest, PortNumbersFromZeroTo254AreServed) {
    for (const std::int32_t number : {0, 1, 254}) {
        Connect(number);
        EXPECT_TRUE(QueuesOf(number)->available);
    }
}

TEST_F(SerialConnectTest, SilentDongleIsAskedThreeTimesAndThenIgnored) {
    StdoutCapture console;
    LogCapture log;
    std::shared_ptr<FakePort> port;
    {
        FakeTick tick(1000);
        port = FakePort::Plug(9);
        port->on_packet = [&tick](FakePort&, const Bytes&) { StaySilent(tick, 9); };
        kSerialTransport.Start();
        ASSERT_TRUE(Reaches(9, PortState::kFailed));
        ASSERT_TRUE(Closes(*port));
    }
    const std::uint32_t scans = ScanCount();
    ASSERT_TRUE(Eventually([=] { return ScanCount() >= scans + 3; }));
    EXPECT_EQ(StateOf(9), PortState::kFailed);
    EXPECT_EQ(port->OpenCount(), 1u);
    EXPECT_EQ(port->ReceivedCount(kTypeSync), 3u);
    EXPECT_FALSE(QueuesOf(9)->available);

    ASSERT_TRUE(Unplug(9));
    EXPECT_TRUE(log.Has("[SerialConnect]   COM9 got disconnected, set to unused"));
    kSerialTransport.Stop();
    EXPECT_TRUE(log.Has("[ConnectSerialPort] COM9: No response from device. Closing again."));
    EXPECT_TRUE(log.Has("[SerialThreadFunc] COM9 Instance stopped"));
    EXPECT_EQ(console.Text(),
              "COM9: New device detected\n"
              "COM9: Connecting to new device\n"
              "COM9: Send SYNC\n"
              "COM9: Send SYNC\n"
              "COM9: Send SYNC\n"
              "COM9: Device did not respond\n");
}

TEST_F(SerialConnectTest, FailedPortIsRetriedAfterAReplug) {
    StartWithSilentPort(9);
    ASSERT_TRUE(Unplug(9));
    Connect(9);
}

TEST_F(SerialConnectTest, AnswerToTheThirdSyncStillConnects) {
    FakeTick tick(1000);
    StdoutCapture console;
    const auto port = FakePort::Plug(4);
    port->on_packet = [&tick](FakePort& self, const Bytes&) {
        if (self.ReceivedCount(kTypeSync) == 3) {
            self.Send(kSyncBytes);
        } else {
            StaySilent(tick, 4);
        }
    };
    kSerialTransport.Start();
    EXPECT_TRUE(Reaches(4, PortState::kConnected));
    kSerialTransport.Stop();
    EXPECT_EQ(port->ReceivedCount(kTypeSync), 3u);
}

TEST_F(SerialConnectTest, PortThatCannotBeOpenedIsIgnoredUntilItDisappears) {
    StdoutCapture console;
    StartWithRefusedPort(12);
    EXPECT_FALSE(QueuesOf(12)->available);
    EXPECT_FALSE(QueuesOf(12)->rx.active);
    EXPECT_FALSE(QueuesOf(12)->tx.active);
    const std::uint32_t scans = ScanCount();
    ASSERT_TRUE(Eventually([=] { return ScanCount() >= scans + 2; }));
    kSerialTransport.Stop();
    EXPECT_EQ(console.Text(),
              "COM12: New device detected\n"
              "COM12: Connecting to new device\n"
              "Failed to open serial port: 5\n");
}

// ---------------------------------------------------------------- ports that are not ready

class SerialReadinessTest : public SerialConnectTest {
protected:
    static constexpr std::uint64_t kOneHourMs = 3'600'000;

    // True once a scan has run from its beginning to its end.
    static bool ScansAgain() {
        const std::uint32_t scans = ScanCount();
        return Eventually([=] { return ScanCount() >= scans + 2; });
    }
    // As above, with a tick that only the test moves.
    static bool ScansAgain(FakeTick& tick) {
        const std::uint32_t scans = ScanCount();
        return Eventually([&tick, scans] {
            tick.Advance(1);
            return ScanCount() >= scans + 2;
        });
    }
    // Two scans have seen it afterwards.
    static bool RestartDriver(std::int32_t number) {
        SetReadiness(number, PortReadiness::kStopped);
        if (!ScansAgain()) return false;
        SetReadiness(number, PortReadiness::kReady);
        return ScansAgain() && ScansAgain();
    }
    static void AllowAccess(FakePort& port, std::int32_t number) {
        port.Inject([](FakePort& self) { self.open_error.reset(); });
        SetReadiness(number, PortReadiness::kReady);
    }

private:
    static constexpr SerialLimits kLongSettling = [] {
        SerialLimits limits = kPatientLimits;
        limits.settle_ms = kOneHourMs;
        return limits;
    }();
    const UseLimits limits_{kLongSettling};
};

TEST_F(SerialReadinessTest, PortIsHeldBackUntilItIsReady) {
    StdoutCapture console;
    LogCapture log;
    const auto port = FakePort::Plug(7, PortReadiness::kStarting);
    kSerialTransport.Start();
    ASSERT_TRUE(ScansAgain());
    SetReadiness(7, PortReadiness::kNoAccess);
    ASSERT_TRUE(ScansAgain());
    EXPECT_EQ(StateOf(7), PortState::kUnused);
    EXPECT_EQ(port->OpenCount(), 0u);
    SetReadiness(7, PortReadiness::kReady);
    ASSERT_TRUE(Reaches(7, PortState::kConnected));
    kSerialTransport.Stop();
    EXPECT_EQ(
        console.Text().rfind("COM7: New device detected\nCOM7: Connecting to new device\n", 0), 0u)
        << console.Text();
    EXPECT_EQ(log.Count("[SerialConnect]   COM7 is not ready, held back"), 1u);
}

TEST_F(SerialReadinessTest, PortThatStaysUnreadyIsTriedAfterItsTimeAndTheLogHasAnAdvice) {
    const struct {
        PortReadiness readiness;
        const char* logged;
    } rows[] = {
        {PortReadiness::kStarting,
         "[SerialConnect] COM12: The system has not finished setting up fake12: advice on fake12"},
        {PortReadiness::kNoAccess,
         "[SerialConnect] COM12: This process has no access to fake12: advice on fake12"},
    };
    for (const auto& row : rows) {
        FakeTick tick(1000);
        StdoutCapture console;
        LogCapture log;
        const auto port = FakePort::Plug(12, row.readiness);
        port->open_error = 13;
        kSerialTransport.Start();
        ASSERT_TRUE(ScansAgain(tick));
        EXPECT_EQ(StateOf(12), PortState::kUnused);
        tick.Advance(kOneHourMs);
        ASSERT_TRUE(ScansAgain(tick));
        ASSERT_TRUE(ScansAgain(tick));
        EXPECT_EQ(StateOf(12), PortState::kFailed);
        kSerialTransport.Stop();
        EXPECT_EQ(console.Text(),
                  "COM12: New device detected\n"
                  "COM12: Connecting to new device\n"
                  "Failed to open serial port: 13\n");
        EXPECT_EQ(log.Count(row.logged), 1u) << row.logged;
        FakePort::RemoveAll();
    }
}

TEST_F(SerialReadinessTest, TimeToBecomeReadyBeginsAgainAfterAReplug) {
    FakeTick tick(1000);
    FakePort::Plug(7, PortReadiness::kNoAccess);
    kSerialTransport.Start();
    ASSERT_TRUE(ScansAgain(tick));
    UnplugPort(7);
    ASSERT_TRUE(ScansAgain(tick));
    tick.Advance(kOneHourMs);
    const auto port = FakePort::Plug(7, PortReadiness::kNoAccess);
    ASSERT_TRUE(ScansAgain(tick));
    EXPECT_EQ(StateOf(7), PortState::kUnused);
    EXPECT_EQ(port->OpenCount(), 0u);
}

TEST_F(SerialReadinessTest, PortWhoseDriverDoesNotRunIsNeverOpened) {
    FakeTick tick(1000);
    const auto port = FakePort::Plug(7, PortReadiness::kStopped);
    kSerialTransport.Start();
    ASSERT_TRUE(ScansAgain(tick));
    tick.Advance(2 * kOneHourMs);
    ASSERT_TRUE(ScansAgain(tick));
    EXPECT_EQ(StateOf(7), PortState::kUnused);
    EXPECT_EQ(port->OpenCount(), 0u);
    SetReadiness(7, PortReadiness::kReady);
    ASSERT_TRUE(ScansAgain(tick));
    EXPECT_TRUE(Reaches(7, PortState::kConnected));
}

TEST_F(SerialReadinessTest, PortThatCouldNotBeOpenedIsRetriedWhenItsDriverWasRestarted) {
    LogCapture log;
    const auto port = StartWithRefusedPort(12);
    port->Inject([](FakePort& self) { self.open_error.reset(); });
    ASSERT_TRUE(ScansAgain());
    EXPECT_EQ(StateOf(12), PortState::kFailed) << "it was ready all the time";
    SetReadiness(12, PortReadiness::kStopped);
    ASSERT_TRUE(ScansAgain());
    EXPECT_EQ(StateOf(12), PortState::kFailed);
    SetReadiness(12, PortReadiness::kReady);
    EXPECT_TRUE(Reaches(12, PortState::kConnected));
    EXPECT_EQ(port->OpenCount(), 1u);
    EXPECT_TRUE(log.Has("[SerialConnect]   COM12 has become ready, set to unused"));
}

TEST_F(SerialReadinessTest, PortThatCouldNotBeOpenedIsRetriedOnceForEachRestart) {
    StdoutCapture console;
    StartWithRefusedPort(12);
    ASSERT_TRUE(RestartDriver(12));
    kSerialTransport.Stop();
    const std::string once =
        "COM12: New device detected\n"
        "COM12: Connecting to new device\n"
        "Failed to open serial port: 5\n";
    EXPECT_EQ(console.Text(), once + once);
}

TEST_F(SerialReadinessTest, PortThatFailedForLackOfAccessIsRetriedWhenItIsGiven) {
    FakeTick tick(1000);
    const auto port = FakePort::Plug(12, PortReadiness::kNoAccess);
    port->open_error = 13;
    kSerialTransport.Start();
    ASSERT_TRUE(ScansAgain(tick));
    tick.Advance(kOneHourMs);
    ASSERT_TRUE(ScansAgain(tick));
    EXPECT_EQ(StateOf(12), PortState::kFailed);
    AllowAccess(*port, 12);
    ASSERT_TRUE(ScansAgain(tick));
    EXPECT_TRUE(Reaches(12, PortState::kConnected));
}

TEST_F(SerialReadinessTest, PortThatDidNotAnswerIsNotRetriedWhenItsDriverWasRestarted) {
    const auto port = StartWithSilentPort(9);
    ASSERT_TRUE(RestartDriver(9));
    EXPECT_EQ(StateOf(9), PortState::kFailed);
    EXPECT_EQ(port->OpenCount(), 1u);
}

// The port reports by itself when it no longer works.
TEST_F(SerialReadinessTest, ConnectedPortIsLeftAloneWhileItsDriverHasAProblem) {
    const auto port = Connect(7);
    SetReadiness(7, PortReadiness::kStopped);
    ASSERT_TRUE(ScansAgain());
    EXPECT_EQ(StateOf(7), PortState::kConnected);
    EXPECT_EQ(port->CloseCount(), 0u);
}

// ---------------------------------------------------------------- failures while connecting

struct ThreadFailure {
    const char* description;
    const char* printed;
    bool tx_cleaned_up;
    bool rx_cleaned_up;
};

TEST_F(SerialConnectTest, ThreadCreationFailureClosesThePort) {
    constexpr ThreadFailure kFailures[] = {
        {"Tarvik SerialRxThreadFunc", "Failed to create RX thread: 11\n", false, false},
        {"Tarvik SerialTxThreadFunc", "Failed to create TX thread: 11\n", false, true},
        {"Tarvik SerialThreadFunc", "Failed to create thread: 11\n", true, true},
    };
    for (const ThreadFailure& failure : kFailures) {
        SCOPED_TRACE(failure.description);
        StdoutCapture console;
        LogCapture log;
        const auto port = FakePort::Plug(20);
        {
            ThreadStartFault fault(failure.description, 11);
            kSerialTransport.Start();
            ASSERT_TRUE(Reaches(20, PortState::kFailed));
        }
        EXPECT_FALSE(port->IsOpen());
        EXPECT_FALSE(QueuesOf(20)->available);
        EXPECT_FALSE(QueuesOf(20)->rx.active);
        EXPECT_EQ(HasWithHandle(log, "[ConnectSerialPort] Closing Thread handle 0x",
                                " (TxThread error cleanup) for port 20"),
                  failure.tx_cleaned_up);
        EXPECT_EQ(HasWithHandle(log, "[ConnectSerialPort] Closing Thread handle 0x",
                                " (RxThread error cleanup) for port 20"),
                  failure.rx_cleaned_up);
        kSerialTransport.Stop();
        EXPECT_TRUE(Contains(console.Text(), failure.printed)) << console.Text();
        FakePort::RemoveAll();
    }
}

TEST_F(SerialConnectTest, PortThatBreaksDuringTheHandshakeFailsAtOnce) {
    StdoutCapture console;
    const auto port = FakePort::Plug(6);
    port->on_packet = [](FakePort& self, const Bytes&) { self.Break(21); };
    kSerialTransport.Start();
    ASSERT_TRUE(Reaches(6, PortState::kFailed));
    ASSERT_TRUE(Closes(*port));
    AwaitEndOfScan();  // a scan that is stopped before it prints the failure prints nothing
    kSerialTransport.Stop();
    EXPECT_LT(port->ReceivedCount(kTypeSync), 3u);
    EXPECT_TRUE(Contains(console.Text(), "COM6: Device did not respond\n"));
}

// ---------------------------------------------------------------- unplugging

TEST_F(SerialConnectTest, UnpluggedDongleIsStoppedByTheNextScan) {
    LogCapture log;
    const auto port = Connect(5);
    ASSERT_TRUE(Unplug(5));
    ASSERT_TRUE(Closes(*port));
    // By this scan, or by a later one if the thread needs longer.
    EXPECT_TRUE(Eventually([&log] {
        return HasWithHandle(log, "[SerialConnect] Closing Thread handle 0x",
                             " (MonitorThread) for port 5");
    }));
    kSerialTransport.Stop();
    EXPECT_FALSE(QueuesOf(5)->available);
    EXPECT_FALSE(QueuesOf(5)->rx.active);
    EXPECT_FALSE(QueuesOf(5)->tx.active);
    EXPECT_TRUE(log.Has("[SerialConnect]   COM5 Still connected, wait for cleanup"));
    EXPECT_TRUE(log.Has("[SerialThreadFunc] COM5 Instance is stopping, waiting for threads"));
    EXPECT_TRUE(HasWithHandle(log, "[SerialThreadFunc] Closing Thread handle 0x",
                              " (TxThread) for port 5"));
    EXPECT_TRUE(HasWithHandle(log, "[SerialThreadFunc] Closing Thread handle 0x",
                              " (RxThread) for port 5"));
    EXPECT_TRUE(HasWithHandle(log, "[SerialRxThreadFunc] Closing Event handle 0x",
                              " (rxOverlap.hEvent) for port 5"));
    EXPECT_TRUE(HasWithHandle(log, "[SerialTxThreadFunc] Closing Event handle 0x",
                              " (txOverlap.hEvent) for port 5"));
    EXPECT_TRUE(log.Has("[SerialRxThreadFunc] Exiting."));
    EXPECT_TRUE(log.Has("[SerialTxThreadFunc] Exiting."));
    EXPECT_TRUE(log.Has("[SerialThreadFunc] COM5 Instance stopped"));
}

TEST_F(SerialConnectTest, ReplugConnectsTheSameQueuesWithoutLeftovers) {
    const auto first = Connect(5);
    first->Send(WirePacket(kTypeRawc, Bytes(16)));
    ASSERT_TRUE(Eventually([] {
        LockGuard hold(QueuesOf(5)->rx.lock);
        return QueuesOf(5)->rx.count == 1;
    }));
    ASSERT_TRUE(Unplug(5));
    ASSERT_TRUE(Closes(*first));

    const auto second = Connect(5);
    EXPECT_EQ(TakePacket(&QueuesOf(5)->rx, 0), nullptr);
    second->Send(WirePacket(kTypeLogn, Bytes(184)));
    EXPECT_NE(Receive(5, kTypeLogn), nullptr);
}

TEST_F(SerialConnectTest, SyncPrecedesThePacketsOfALinkThatKeepsSending) {
    std::atomic<bool> stop{false};
    std::thread link([&stop] {
        while (!stop) {
            PacketPtr request = MakePacket(kTypeCreq, 32);
            FragSendPacket(QueuesOf(5), request);
        }
    });
    for (int replug = 0; replug < 5; ++replug) {
        const auto port = FakePort::Plug(5);
        kSerialTransport.Start();
        EXPECT_TRUE(Eventually([&] { return port->ReceivedCount(kTypeCreq) > 0; }));
        ASSERT_FALSE(port->Received().empty());
        EXPECT_EQ(port->Received().front(), kSyncBytes);
        kSerialTransport.Stop();
        FakePort::RemoveAll();
    }
    stop = true;
    link.join();
}

TEST_F(SerialConnectTest, ReplugDiscardsAHalfReceivedPacket) {
    const auto first = Connect(5);
    Bytes half = WirePacket(kTypeCres, Bytes(100));
    half.resize(50);
    first->Send(half);
    ASSERT_TRUE(Eventually([&] { return first->Unread() == 0; }));
    ASSERT_TRUE(Unplug(5));
    const auto second = Connect(5);
    second->Send(WirePacket(kTypePing));
    EXPECT_TRUE(Eventually([&] { return second->ReceivedCount(kTypeRepl) == 1; }));
}

TEST_F(SerialConnectTest, BrokenPortIsReconnectedByTheNextScan) {
    LogCapture log;
    const auto port = Connect(8);
    port->Break(21);
    EXPECT_TRUE(
        Eventually([&] { return port->OpenCount() == 2 && StateOf(8) == PortState::kConnected; }));
    EXPECT_TRUE(log.Has("[SerialThreadFunc] COM8 Instance stopped"));
}

TEST_F(SerialConnectTest, ManyReplugsLeakNothing) {
    const std::uint64_t before = [] {
        Connect(5);
        kSerialTransport.Stop();
        FakePort::RemoveAll();
        return LiveMemory().blocks;
    }();
    for (int i = 0; i < 10; ++i) {
        Connect(5);
        ASSERT_TRUE(Unplug(5));
    }
    kSerialTransport.Stop();
    EXPECT_EQ(LiveMemory().blocks, before);
}

// ---------------------------------------------------------------- stopping

TEST_F(SerialConnectTest, StopClosesEveryConnectedPort) {
    LogCapture log;
    const auto first = Connect(1);
    const auto second = Connect(200);
    kSerialTransport.Stop();
    for (const int number : {1, 200}) {
        const std::string text = std::to_string(number);
        EXPECT_TRUE(log.Has("[SerialConnectThreadFunc]   Waiting for COM" + text + " Thread"));
        EXPECT_TRUE(HasWithHandle(log, "[SerialConnectThreadFunc] Closing Thread handle 0x",
                                  " (MonitorThread error cleanup) for port " + text));
        EXPECT_EQ(StateOf(number), PortState::kUnused);
        EXPECT_EQ(PortOf(number).monitor_thread, nullptr) << "its thread has ended";
    }
    EXPECT_FALSE(first->IsOpen());
    EXPECT_FALSE(second->IsOpen());
}

TEST_F(SerialConnectTest, PortThatExceedsItsTimeIsClosedLikeTheOthers) {
    LogCapture log;
    const auto slow = Connect(1);
    const auto other = Connect(2);
    std::optional<Thread> stop;
    {
        // Its monitor thread is blocked. That the next port has its turn shows that the time of the
        // first is over.
        const LockGuard hold(QueuesOf(1)->device_lock);
        stop.emplace([] { kSerialTransport.Stop(); });
        ASSERT_TRUE(Eventually(
            [&] { return log.Has("[SerialConnectThreadFunc]   Waiting for COM2 Thread"); }));
    }
    stop->Join();
    EXPECT_TRUE(HasWithHandle(log, "[SerialConnectThreadFunc] Closing Thread handle 0x",
                              " (MonitorThread error cleanup) for port 1"));
    EXPECT_FALSE(log.Mentions("(MonitorThread) for port 1"));
    EXPECT_EQ(PortOf(1).monitor_thread, nullptr);
    EXPECT_FALSE(slow->IsOpen());
}

TEST_F(SerialConnectTest, StopDoesNotWaitForADriverThatClosesThePortSlowly) {
    const auto port = Connect(5);
    port->Inject([](FakePort& self) { self.hold_close = true; });
    UnplugPort(5);
    ASSERT_TRUE(Eventually([&] { return port->HoldsItsClose(); }));
    std::atomic<bool> stopped{false};
    Thread stop([&stopped] {
        StopPort(&PortOf(5));
        stopped = true;
    });
    EXPECT_TRUE(Eventually([&] { return stopped.load(); }));
    port->Inject([](FakePort& self) { self.hold_close = false; });
    stop.Join();
    EXPECT_TRUE(Closes(*port));
}

TEST_F(SerialConnectTest, StopDuringAHandshakeClosesThePort) {
    const FakeTick tick(1000);  // the handshake never runs out of time
    StdoutCapture console;
    const auto port = FakePort::Plug(30);
    port->AnswerNothing();
    kSerialTransport.Start();
    ASSERT_TRUE(Eventually([&] { return port->ReceivedCount(kTypeSync) == 1; }));
    kSerialTransport.Stop();
    EXPECT_FALSE(port->IsOpen());
    EXPECT_EQ(PortOf(30).monitor_thread, nullptr);
    EXPECT_EQ(StateOf(30), PortState::kUnused);
}

TEST_F(SerialConnectTest, StopWakesTheThreadsThatWaitForTheDongle) {
    // The receive, monitor and connect threads sleep for an hour unless they are woken.
    const UseLimits sleepy(kSleepyLimits);
    LogCapture log;
    const auto port = Connect(2);
    ASSERT_TRUE(Eventually([&] { return port->IsDrained(); }));
    kSerialTransport.Stop();
    EXPECT_FALSE(port->IsOpen());
    EXPECT_EQ(PortOf(2).monitor_thread, nullptr);
    EXPECT_TRUE(log.Has("[SerialThreadFunc] COM2 Instance stopped"));
    EXPECT_TRUE(log.Has("[SerialConnectThreadFunc] Exiting"));
}

TEST_F(SerialConnectTest, RepeatedInitAndDeinitReconnectThePort) {
    FakePort::Plug(2);
    for (int i = 0; i < 5; ++i) {
        kSerialTransport.Init();
        kSerialTransport.Start();
        ASSERT_TRUE(Reaches(2, PortState::kConnected));
        kSerialTransport.Stop();
        kSerialTransport.Deinit();
        EXPECT_EQ(StateOf(2), PortState::kUnused);
    }
}

TEST_F(SerialConnectTest, WaitOnAStoppingPortReturnsNothing) {
    const auto port = Connect(2);
    Thread waiter([] { EXPECT_EQ(WaitForPacket(QueuesOf(2), kTypeCres, 3'600'000, 1), nullptr); });
    ASSERT_TRUE(Eventually([] {
        LockGuard hold(QueuesOf(2)->rx.lock);
        return QueuesOf(2)->rx.sleepers == 1;
    }));
    port->Break(21);
    waiter.Join();
}

}  // namespace
}  // namespace tarvik::test
