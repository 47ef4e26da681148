#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "unit/transport/scan_time.h"
#include "unit/transport/serial_fixture.h"

namespace tarvik::test {
namespace {

constexpr std::uint32_t kScanMs = 20;  // enough to report a dongle again

struct Reports {
    std::size_t expected = 1;  // after these the scan's time runs
    std::vector<DeviceReport> list;
    static void Add(void* context, const DeviceReport& report) {
        auto* self = static_cast<Reports*>(context);
        self->list.push_back(report);
        if (self->list.size() == self->expected) ScanTime::GoOn();
    }
};

class SerialScanTest : public SerialFixture {
protected:
    static std::vector<DeviceReport> Scan(std::size_t expected = 1) {
        const ScanTime time;
        Reports reports{expected, {}};
        EXPECT_TRUE(kSerialTransport.UpdateDevices(kScanMs, Reports::Add, &reports));
        return reports.list;
    }
};

std::size_t Occurrences(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST_F(SerialScanTest, FindsNothingWithoutInit) {
    kSerialTransport.Deinit();
    LogCapture log;
    EXPECT_FALSE(kSerialTransport.UpdateDevices(10'000, nullptr, nullptr));
    EXPECT_TRUE(log.Has("[SerialUpdateDevices] Not initialized"));
}

TEST_F(SerialScanTest, FindsNothingAtOnceWhenNotRunning) {
    StdoutCapture console;
    EXPECT_FALSE(kSerialTransport.UpdateDevices(3'600'000, nullptr, nullptr));
    EXPECT_EQ(console.Text(), "");
}

TEST_F(SerialScanTest, FindsNothingWithoutDongles) {
    kSerialTransport.Start();
    StdoutCapture console;
    Reports reports;
    EXPECT_TRUE(kSerialTransport.UpdateDevices(kScanMs, Reports::Add, &reports));
    EXPECT_TRUE(reports.list.empty());
    EXPECT_EQ(console.Text(),
              "[Serial] SerialUpdateDevices: scanning for devices\r\n"
              "[Serial] SerialUpdateDevices done\r\n");
}

TEST_F(SerialScanTest, DongleIsReportedOnceWithItsLoginAndQueues) {
    const auto port = Connect(7);
    StdoutCapture console;
    const std::vector<DeviceReport> reports = Scan();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].transport, 1u);
    EXPECT_EQ(reports[0].queues, QueuesOf(7));
    const Bytes login = LoginPacket("Test dongle");
    EXPECT_TRUE(std::equal(login.begin(), login.end(), reports[0].login.bytes));
    EXPECT_GE(port->ReceivedCount(kTypeIden), 1u);
    EXPECT_EQ(console.Text(),
              "[Serial] SerialUpdateDevices: scanning for devices\r\n"
              "[Serial] SerialUpdateDevices received: 'Test dongle' with mac "
              "A0:B1:C2:D3:E4:F5\r\n"
              "[Serial] SerialUpdateDevices done\r\n");
}

TEST_F(SerialScanTest, EveryDongleIsReported) {
    Connect(1);
    Connect(2);
    Connect(254);
    EXPECT_EQ(Scan(3).size(), 3u);
    EXPECT_EQ(Scan(3).size(), 3u) << "and again in the next scan";
}

TEST_F(SerialScanTest, NameThatFillsItsFieldIsBounded) {
    const auto port = FakePort::Plug(7);
    port->name = std::string(32, 'N');
    kSerialTransport.Start();
    ASSERT_TRUE(Reaches(7, PortState::kConnected));
    StdoutCapture console;
    EXPECT_EQ(Scan().size(), 1u);
    EXPECT_NE(console.Text().find("'" + std::string(32, 'N') + "'"), std::string::npos);
}

TEST_F(SerialScanTest, BusyIsIgnored) {
    const auto port = FakePort::Plug(7);
    port->on_packet = [](FakePort& self, const Bytes& packet) {
        const std::uint32_t type = LoadU32(packet.data());
        if (type == kTypeSync) self.Send(kSyncBytes);
        if (type != kTypeIden) return;
        self.Send(WirePacket(kTypeBusy, Bytes(4)));
        self.Send(LoginPacket("late"));
    };
    kSerialTransport.Start();
    ASSERT_TRUE(Reaches(7, PortState::kConnected));
    EXPECT_EQ(Scan().size(), 1u);
}

TEST_F(SerialScanTest, DongleThatDoesNotIdentifyItselfIsAskedAgain) {
    constexpr std::uint32_t kPatienceMs = 3'600'000;
    FakeTick tick(1000);
    const auto port = FakePort::Plug(7);
    port->on_packet = [&tick](FakePort& self, const Bytes& packet) {
        const std::uint32_t type = LoadU32(packet.data());
        if (type == kTypeSync) self.Send(kSyncBytes);
        if (type != kTypeIden) return;
        if (self.ReceivedCount(kTypeIden) == 2) {
            self.Send(LoginPacket("second"));
        } else {
            StaySilent(tick, 7);
        }
    };
    kSerialTransport.Start();
    ASSERT_TRUE(Reaches(7, PortState::kConnected));
    struct Scan {
        FakeTick& tick;
        int reports = 0;
    } scan{tick};
    const ReportDevice count_and_end = [](void* context, const DeviceReport&) {
        auto* self = static_cast<Scan*>(context);
        ++self->reports;
        self->tick.Advance(kPatienceMs);
    };
    EXPECT_TRUE(kSerialTransport.UpdateDevices(kPatienceMs, count_and_end, &scan));
    EXPECT_EQ(scan.reports, 1);
    EXPECT_EQ(port->ReceivedCount(kTypeIden), 2u);
}

TEST_F(SerialScanTest, DongleThatConnectsDuringTheScanIsReported) {
    kSerialTransport.Start();
    std::atomic<bool> reported{false};
    Thread scan([&reported] {
        kSerialTransport.UpdateDevices(
            3'600'000,
            [](void* context, const DeviceReport&) {
                *static_cast<std::atomic<bool>*>(context) = true;
            },
            &reported);
    });
    FakePort::Plug(7);
    EXPECT_TRUE(Eventually([&reported] { return reported.load(); }));
    kSerialTransport.Stop();
    scan.Join();
}

TEST_F(SerialScanTest, StopEndsARunningScan) {
    kSerialTransport.Start();
    StdoutCapture console;
    std::atomic<bool> scanning{false};
    Thread scan([&scanning] {
        scanning = true;
        kSerialTransport.UpdateDevices(3'600'000, nullptr, nullptr);
    });
    ASSERT_TRUE(Eventually([&scanning] { return scanning.load(); }));
    kSerialTransport.Stop();
    scan.Join();
    EXPECT_LE(Occurrences(console.Text(), "SerialUpdateDevices done"), 1u);
}

TEST_F(SerialScanTest, ConcurrentScansAllReportTheDongle) {
    Connect(7);
    static std::atomic<int> reports;
    reports = 0;
    std::atomic<int> found{0};
    {
        const ScanTime time;
        const auto body = [&found] {
            int own = 0;
            kSerialTransport.UpdateDevices(
                kScanMs,
                [](void* context, const DeviceReport&) {
                    ++*static_cast<int*>(context);
                    if (++reports == 3) ScanTime::GoOn();
                },
                &own);
            if (own == 1) ++found;
        };
        Thread first(body), second(body), third(body);
    }
    EXPECT_EQ(found, 3);
}

TEST_F(SerialScanTest, ReportIsMadeUnderTheDeviceLock) {
    Connect(7);
    struct Probe {
        std::unique_ptr<Thread> other;
        std::atomic<bool> started{false};
        std::atomic<bool> report_is_over{false};
        std::atomic<bool> entered_after_report{false};
    } probe;
    const ScanTime time;
    kSerialTransport.UpdateDevices(
        kScanMs,
        [](void* context, const DeviceReport& report) {
            ScanTime::GoOn();
            auto* self = static_cast<Probe*>(context);
            self->other = std::make_unique<Thread>([self, queues = report.queues] {
                self->started = true;
                LockGuard hold(queues->device_lock);
                self->entered_after_report = self->report_is_over.load();
            });
            EXPECT_TRUE(Eventually([self] { return self->started.load(); }));
            self->report_is_over = true;
        },
        &probe);
    ASSERT_NE(probe.other, nullptr);
    probe.other->Join();
    EXPECT_TRUE(probe.entered_after_report);
}

TEST_F(SerialScanTest, ReportWakesAWaiterForTheDevice) {
    Connect(7);
    DeviceQueues* queues = QueuesOf(7);
    std::atomic<bool> woken{false};
    Thread waiter([queues, &woken] {
        LockGuard hold(queues->device_lock);
        woken = queues->device_changed.Wait(queues->device_lock, 10'000);
    });
    // The waiter may miss the first report.
    EXPECT_TRUE(Eventually([&] {
        Scan();
        return woken.load();
    }));
}

}  // namespace
}  // namespace tarvik::test
