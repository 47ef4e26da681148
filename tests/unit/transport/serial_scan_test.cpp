#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "unit/transport/serial_fixture.h"

namespace tarvik::test {
namespace {

struct Reports {
    std::vector<DeviceReport> list;
    static void Add(void* context, const DeviceReport& report) {
        static_cast<Reports*>(context)->list.push_back(report);
    }
};

class SerialScanTest : public SerialFixture {
protected:
    static std::vector<DeviceReport> Scan(std::uint32_t timeout_ms = 500) {
        Reports reports;
        EXPECT_TRUE(kSerialTransport.UpdateDevices(timeout_ms, Reports::Add, &reports));
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

TEST_F(SerialScanTest, WithoutInitItFindsNothing) {
    kSerialTransport.Deinit();
    LogCapture log;
    EXPECT_FALSE(kSerialTransport.UpdateDevices(10'000, nullptr, nullptr));
    EXPECT_TRUE(log.Has("[SerialUpdateDevices] Not initialized"));
}

TEST_F(SerialScanTest, NotRunningItFindsNothingAtOnce) {
    StdoutCapture console;
    EXPECT_FALSE(kSerialTransport.UpdateDevices(3'600'000, nullptr, nullptr));
    EXPECT_EQ(console.Text(), "");
}

TEST_F(SerialScanTest, WithoutDonglesItSaysSo) {
    kSerialTransport.Start();
    StdoutCapture console;
    EXPECT_TRUE(Scan(20).empty());
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
    EXPECT_EQ(Scan().size(), 3u);
    EXPECT_EQ(Scan().size(), 3u) << "and again in the next scan";
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
    const auto port = FakePort::Plug(7);
    port->on_packet = [](FakePort& self, const Bytes& packet) {
        if (LoadU32(packet.data()) == kTypeSync) self.Send(kSyncBytes);
        if (self.ReceivedCount(kTypeIden) == 2) self.Send(LoginPacket("second"));
    };
    kSerialTransport.Start();
    ASSERT_TRUE(Reaches(7, PortState::kConnected));
    EXPECT_EQ(Scan(1000).size(), 1u);
    EXPECT_GE(port->ReceivedCount(kTypeIden), 2u);
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

TEST_F(SerialScanTest, StopEndsAScanThatIsUnderWay) {
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

TEST_F(SerialScanTest, ScansOfSeveralThreadsAllSeeTheDongle) {
    Connect(7);
    std::atomic<int> found{0};
    {
        const auto body = [&found] {
            if (Scan(500).size() == 1) ++found;
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
    kSerialTransport.UpdateDevices(
        500,
        [](void* context, const DeviceReport& report) {
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

TEST_F(SerialScanTest, ReportWakesOneWhoWaitsForTheDevice) {
    Connect(7);
    DeviceQueues* queues = QueuesOf(7);
    std::atomic<bool> woken{false};
    Thread waiter([queues, &woken] {
        LockGuard hold(queues->device_lock);
        woken = queues->device_changed.Wait(queues->device_lock, 10'000);
    });
    // The waiter may come too late for the first report.
    EXPECT_TRUE(Eventually([&] {
        Scan(10);
        return woken.load();
    }));
}

}  // namespace
}  // namespace tarvik::test
