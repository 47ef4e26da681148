#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "link/packet_counters.h"
#include "support/config.h"
#include "transport/demo/demo_limits.h"
#include "transport/transport.h"
#include "unit/faults/thread_start_fault.h"
#include "unit/test_support.h"
#include "unit/transport/scan_time.h"

namespace tarvik {

const DemoLimits& GetDemoLimits() {
    static constexpr DemoLimits kLimits = {.transmit_poll_ms = 50, .login_wait_ms = 5};
    return kLimits;
}

namespace test {
namespace {

constexpr std::uint32_t kScanMs = 20;  // enough to report the device again

// The reports of one scan. Its time runs from the first one on.
struct Reports {
    std::vector<DeviceReport> list;
    static void Add(void* context, const DeviceReport& report) {
        static_cast<Reports*>(context)->list.push_back(report);
        ScanTime::GoOn();
    }
};

class DemoTransportTest : public testing::Test {
protected:
    void SetUp() override {
        config = {};
        config.dummyDevice = true;
    }
    void TearDown() override { kDummyTransport.Deinit(); }

    void InitAndStart() {
        kDummyTransport.Init();
        kDummyTransport.Start();
    }
    static std::vector<DeviceReport> Scan() {
        const ScanTime time;
        Reports reports;
        EXPECT_TRUE(kDummyTransport.UpdateDevices(kScanMs, Reports::Add, &reports));
        return reports.list;
    }
    // The demo device's queues, from its report.
    static DeviceQueues* Queues() {
        const std::vector<DeviceReport> reports = Scan();
        EXPECT_EQ(reports.size(), 1u);
        return reports.empty() ? nullptr : reports.front().queues;
    }
    DeviceQueues* StartedQueues() {
        InitAndStart();
        return Queues();
    }
};

bool Send(DeviceQueues* queues, PacketPtr packet) { return EnqueueTransmitPacket(queues, packet); }

bool SendRequest(DeviceQueues* queues, std::uint32_t id) {
    PacketPtr request = MakePacket(kTypeCreq, 32);
    request->SetU32(28, id);
    return Send(queues, std::move(request));
}

TEST_F(DemoTransportTest, InitLogsItsLocksOnceAndDeinitTheirDeletion) {
    LogCapture log;
    kDummyTransport.Init();
    kDummyTransport.Init();
    EXPECT_EQ(log.Lines().size(), 4u);  // two of them from the queues
    EXPECT_TRUE(log.Mentions("[DummyInit] Initialized CRITICAL_SECTION for DummyQueues at 0x"));
    EXPECT_TRUE(log.Mentions("[DummyInit] Initialized CRITICAL_SECTION DummySessionLock at 0x"));
    kDummyTransport.Deinit();
    EXPECT_TRUE(log.Has("[DummyDeinit] Deleted CRITICAL_SECTION for DummyQueues"));
    EXPECT_TRUE(log.Has("[DummyDeinit] Deleted CRITICAL_SECTION DummySessionLock"));
    EXPECT_TRUE(log.Has("[DummyDeinit] Done"));
    const std::size_t lines = log.Lines().size();
    kDummyTransport.Deinit();
    EXPECT_EQ(log.Lines().size(), lines);
}

TEST_F(DemoTransportTest, NothingStartsOrIsScannedWithoutInit) {
    LogCapture log;
    kDummyTransport.Start();
    EXPECT_TRUE(log.Has("[DummyStart] Start"));
    EXPECT_TRUE(log.Has("[DummyStart] Not initialized, cannot start"));
    Reports reports;
    EXPECT_FALSE(kDummyTransport.UpdateDevices(kScanMs, Reports::Add, &reports));
    EXPECT_TRUE(log.Has("[DummyUpdateDevices] Not initialized"));
    EXPECT_TRUE(reports.list.empty());
}

TEST_F(DemoTransportTest, StartsNoThreadAndScansNothingWhenSwitchedOff) {
    config.dummyDevice = false;
    LogCapture log;
    StdoutCapture console;
    InitAndStart();
    Reports reports;
    EXPECT_FALSE(kDummyTransport.UpdateDevices(10'000, Reports::Add, &reports));
    EXPECT_FALSE(log.Has("[DummyStart] Done"));
    EXPECT_EQ(console.Text(), "");
    kDummyTransport.Stop();
    EXPECT_FALSE(log.Has("[DummyStop] Done"));
}

TEST_F(DemoTransportTest, ScanReportsTheDemoDeviceOnce) {
    StdoutCapture console;
    InitAndStart();
    const std::vector<DeviceReport> reports = Scan();
    ASSERT_EQ(reports.size(), 1u);
    const DeviceReport& report = reports.front();
    EXPECT_EQ(report.transport, 2u);
    ASSERT_NE(report.queues, nullptr);
    EXPECT_EQ(report.queues->mtu, 0u);
    EXPECT_EQ(console.Text(),
              "[Dummy] DummyUpdateDevices: scanning for devices\r\n"
              "[Dummy] DummyUpdateDevices received: 'Demo Device, nonfunctional' with mac "
              "4D:41:43:41:44:44\r\n"
              "[Dummy] DummyUpdateDevices done\r\n");
}

TEST_F(DemoTransportTest, LoginHasTheFixedTextsAndZerosElsewhere) {
    InitAndStart();
    const std::vector<DeviceReport> reports = Scan();
    ASSERT_EQ(reports.size(), 1u);

    std::vector<std::uint8_t> expected(192);
    const auto put = [&expected](std::size_t offset, const std::string& text) {
        std::copy(text.begin(), text.end(), expected.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    put(0, "NGOL");
    expected[4] = 192;
    put(12, "MACADD");
    put(32, "1.5.0.62-95aec0c");
    put(64, "Demo Device, nonfunctional");
    put(96, "17:24:06");
    put(112, "Mar  2 2026");
    const LoginRecord& login = reports.front().login;
    EXPECT_EQ(std::vector<std::uint8_t>(login.bytes, login.bytes + sizeof login.bytes), expected);
    EXPECT_EQ(login.Model(), 0u);
}

TEST_F(DemoTransportTest, EveryScanSendsOneIdentifyAndReceivesOneLogin) {
    LogCapture log;
    InitAndStart();
    for (std::size_t scan = 1; scan <= 2; ++scan) {
        EXPECT_EQ(Scan().size(), 1u);
        EXPECT_EQ(log.Count("[DummyTxThreadFunc] Answering as demo device."), scan);
    }
}

TEST_F(DemoTransportTest, CommunicationRequestIsAnsweredWithAControlUnitTimeout) {
    LogCapture log;
    DeviceQueues* queues = StartedQueues();
    ASSERT_NE(queues, nullptr);
    ASSERT_TRUE(SendRequest(queues, 7));

    const PacketPtr answer = WaitForPacket(queues, kTypeCres, 10'000, 7);
    ASSERT_NE(answer, nullptr);
    const std::vector<std::uint8_t> bytes(answer->Bytes(), answer->Bytes() + answer->length);
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{0x53, 0x45, 0x52, 0x43, 0x14, 0, 0, 0, 0xFF, 0xFF,
                                                0xFF, 0xFF, 0,    0,    0,    0, 7, 0, 0,    0}));
    EXPECT_TRUE(log.Has("[DummyTxThreadFunc] Received comm request #7. respond with timeout."));
    EXPECT_FALSE(log.Mentions("EnqueueReceivedPacket"));
}

TEST_F(DemoTransportTest, AnswersAreQueuedWithoutTag) {
    DeviceQueues* queues = StartedQueues();
    ASSERT_NE(queues, nullptr);
    ASSERT_TRUE(SendRequest(queues, 9));
    PacketPtr answer;
    EXPECT_TRUE(Eventually([&] {
        answer = QueueRemoveByTag(&queues->rx, kNoTag);
        return answer != nullptr;
    }));
    EXPECT_EQ(answer->type, kTypeCres);
}

TEST_F(DemoTransportTest, OtherAndTruncatedPacketsGetNoAnswer) {
    const std::uint64_t sent = ReadPacketCounters().sent_packets;
    DeviceQueues* queues = StartedQueues();
    ASSERT_NE(queues, nullptr);
    ASSERT_TRUE(Send(queues, MakePacket(kTypePing, 12)));
    ASSERT_TRUE(Send(queues, MakePacket(kTypeCreq, 31)));
    // With the scan's IDEN.
    EXPECT_TRUE(Eventually([&] { return ReadPacketCounters().sent_packets == sent + 3; }));
    EXPECT_EQ(TakePacket(&queues->rx, 0), nullptr);
}

TEST_F(DemoTransportTest, TakenPacketsAreCountedAsSent) {
    const PacketCounters before = ReadPacketCounters();
    DeviceQueues* queues = StartedQueues();
    ASSERT_NE(queues, nullptr);
    ASSERT_TRUE(Send(queues, MakePacket(kTypePing, 100)));
    EXPECT_TRUE(Eventually([&] {
        const PacketCounters now = ReadPacketCounters();
        return now.sent_packets == before.sent_packets + 2 &&
               now.sent_bytes == before.sent_bytes + 108;
    }));
}

TEST_F(DemoTransportTest, StopWaitsForTheThreadAndCanBeRepeated) {
    LogCapture log;
    InitAndStart();
    EXPECT_TRUE(log.Has("[DummyStart] Done"));
    kDummyTransport.Start();
    EXPECT_EQ(log.Count("[DummyStart] Done"), 1u);
    kDummyTransport.Stop();
    EXPECT_TRUE(log.Has("[DummyStop] Wait for DummyTxThread"));
    EXPECT_TRUE(log.Mentions("[DummyStop] Closing Thread handle 0x"));
    EXPECT_TRUE(log.Mentions(" (DummyTxThread)"));
    EXPECT_EQ(log.Count("[DummyStop] Done"), 1u);
    kDummyTransport.Stop();
    EXPECT_EQ(log.Count("[DummyStop] Done"), 1u);
    Reports reports;
    EXPECT_FALSE(kDummyTransport.UpdateDevices(kScanMs, Reports::Add, &reports));
}

TEST_F(DemoTransportTest, DeinitStopsARunningDevice) {
    LogCapture log;
    InitAndStart();
    kDummyTransport.Deinit();
    EXPECT_TRUE(log.Has("[DummyStop] Wait for DummyTxThread"));
    EXPECT_TRUE(log.Has("[DummyStop] Done"));
    EXPECT_TRUE(log.Has("[DummyDeinit] Done"));
}

TEST_F(DemoTransportTest, StopEndsARunningScan) {
    InitAndStart();
    std::atomic<bool> scanning{false};
    Thread scan([&scanning] {
        kDummyTransport.UpdateDevices(
            3'600'000,
            [](void* context, const DeviceReport&) {
                *static_cast<std::atomic<bool>*>(context) = true;
            },
            &scanning);
    });
    EXPECT_TRUE(Eventually([&scanning] { return scanning.load(); }));
    kDummyTransport.Stop();
    scan.Join();
}

TEST_F(DemoTransportTest, ThreadCreationFailureIsPrinted) {
    StdoutCapture console;
    {
        ThreadStartFault fault("Tarvik DummyTxThread", 1450);
        InitAndStart();
    }
    EXPECT_EQ(console.Text(), "Failed to create TX thread: 1450\n");
    LogCapture log;
    kDummyTransport.Start();  // the failed attempt does not prevent the next one
    EXPECT_TRUE(log.Has("[DummyStart] Done"));
}

TEST_F(DemoTransportTest, StartsAgainAfterStopAndAfterDeinit) {
    InitAndStart();
    kDummyTransport.Stop();
    kDummyTransport.Start();
    EXPECT_NE(Queues(), nullptr);
    kDummyTransport.Deinit();
    InitAndStart();
    EXPECT_NE(Queues(), nullptr);
}

}  // namespace
}  // namespace test
}  // namespace tarvik
