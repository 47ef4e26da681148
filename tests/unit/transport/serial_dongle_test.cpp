// The system's ports and device list, with the simulated dongle on port 5 and another device on 9.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "conformance/framework/simulator.h"
#include "platform/thread.h"
#include "support/config.h"
#include "transport/serial/port_discovery.h"
#include "transport/serial/serial_port.h"
#include "transport/serial/serial_state.h"
#include "transport/transport.h"
#include "unit/test_support.h"
#include "unit/transport/opened_port.h"
#include "unit/transport/patient_limits.h"

namespace tarvik {

const SerialLimits& GetSerialLimits() {
    static constexpr SerialLimits kLimits = [] {
        SerialLimits limits = test::kPatientLimits;
        limits.scan_pause_ms = 20;  // listing real devices takes time
        limits.sync_wait_ms = 1000;
        limits.login_wait_ms = 500;
        return limits;
    }();
    return kLimits;
}

}  // namespace tarvik

namespace tarvik::test {

namespace {

constexpr std::int32_t kDonglePort = 5;
constexpr std::int32_t kForeignPort = 9;
constexpr int kFileNotFound = 2;  // on both systems

using Bytes = std::vector<std::uint8_t>;
const Bytes kSync = {0x43, 0x4E, 0x59, 0x53, 8, 0, 0, 0};

std::string PathOfDongle() {
    std::string path;
    EXPECT_TRUE(DiscoverPorts(
        [](void* context, const ListedPort& port) {
            EXPECT_EQ(port.number, kDonglePort) << port.path;
            EXPECT_EQ(port.readiness, PortReadiness::kReady);
            *static_cast<std::string*>(context) = port.path;
        },
        &path));
    return path;
}

// ---------------------------------------------------------------- the port itself

class DonglePort : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(conformance::Simulator::IsThere());
        simulator_.Reset();
        path_ = PathOfDongle();
        port_.emplace(path_);
        ASSERT_TRUE(port_->IsOpen()) << OsLastError();
    }
    bool Write(const Bytes& bytes) {
        const auto size = static_cast<std::uint32_t>(bytes.size());
        const TransferOutcome outcome = WritePort(port_->transmit(), bytes.data(), size, 10'000);
        return outcome.step == TransferStep::kDone && outcome.bytes == size;
    }

    conformance::Simulator simulator_;
    std::string path_;
    std::optional<OpenedPort> port_;
};

TEST_F(DonglePort, CarriesBytesBothWays) {
    ASSERT_TRUE(Write(kSync));
    EXPECT_EQ(port_->ReadAtLeast(8), kSync);
}

TEST_F(DonglePort, TimedOutWaitsLoseNothing) {
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(WaitForData(port_->receive(), 1));
        std::uint32_t queued = 99;
        EXPECT_TRUE(QueuedBytes(port_->receive(), &queued));
        EXPECT_EQ(queued, 0u);
    }
    ASSERT_TRUE(Write(kSync));
    EXPECT_EQ(port_->ReadAtLeast(8, 1), kSync);
}

TEST_F(DonglePort, EachOfManyAnswersArrives) {
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(Write(kSync));
        ASSERT_EQ(port_->ReadAtLeast(8), kSync) << i;
    }
}

TEST_F(DonglePort, WakeEndsTheWaitAndAllLaterOnes) {
    Thread waker([this] { WakePort(port_->handle()); });
    EXPECT_TRUE(WaitForData(port_->receive(), 3'600'000));
    EXPECT_TRUE(WaitForData(port_->receive(), 3'600'000));
}

TEST_F(DonglePort, CanBeReopenedAfterClosingWithAWaitPending) {
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(WaitForData(port_->receive(), 1));
        port_.reset();
        port_.emplace(path_);
        ASSERT_TRUE(port_->IsOpen()) << OsLastError();
    }
    ASSERT_TRUE(Write(kSync));
    EXPECT_EQ(port_->ReadAtLeast(8), kSync);
}

TEST_F(DonglePort, UnplugEndsTheWaitAndEveryOperationFails) {
    // Nothing was sent before: the wait itself must notice.
    Thread unplugger([this] { simulator_.Unplug(); });
    EXPECT_TRUE(Eventually([this] {
        std::uint32_t queued = 0;
        return !WaitForData(port_->receive(), 50) || !QueuedBytes(port_->receive(), &queued);
    }));
    EXPECT_NE(OsLastError(), 0);
    unplugger.Join();
    EXPECT_FALSE(Write(kSync));
    port_.reset();
    EXPECT_EQ(OpenPort(path_.c_str()), nullptr);
    EXPECT_EQ(OsLastError(), kFileNotFound);
    simulator_.Replug();
}

// ---------------------------------------------------------------- the transport on it

class DongleOnSerialPort : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(conformance::Simulator::IsThere());
        simulator_.Reset();
        config = {};
        config.useSerial = true;
        kSerialTransport.Init();
        kSerialTransport.Start();
    }
    void TearDown() override { kSerialTransport.Deinit(); }

    static PortState State(std::int32_t number) {
        return serial->port_states[static_cast<std::size_t>(number)];
    }
    static DeviceQueues* Queues() { return &serial->ports[kDonglePort].queues; }
    static bool Connects() {
        return Eventually([] { return State(kDonglePort) == PortState::kConnected; });
    }
    static bool Disconnects() {
        {
            // A scan that found it before may still try to open it.
            const LockGuard end_of_scan(serial->session_lock);
        }
        return Eventually([] { return State(kDonglePort) == PortState::kUnused; }) &&
               Eventually([] { return !Queues()->available; });
    }
    static bool Identifies() {
        bool reported = false;
        const ReportDevice note = [](void* context, const DeviceReport& report) {
            EXPECT_EQ(report.queues, Queues());
            *static_cast<bool*>(context) = true;
        };
        return Eventually([&] {
            kSerialTransport.UpdateDevices(200, note, &reported);
            return reported;
        });
    }

    conformance::Simulator simulator_;
};

TEST_F(DongleOnSerialPort, IsFoundConnectedAndIdentified) {
    ASSERT_TRUE(Connects());
    EXPECT_TRUE(Identifies());
    EXPECT_EQ(simulator_.Violations(), 0u);
}

TEST_F(DongleOnSerialPort, ForeignPortIsNotTouched) {
    ASSERT_TRUE(Connects());
    ASSERT_TRUE(Identifies());
    EXPECT_EQ(State(kForeignPort), PortState::kUnused);
}

TEST_F(DongleOnSerialPort, UnplugIsNoticedAndReplugConnectsAgain) {
    ASSERT_TRUE(Connects());
    for (int i = 0; i < 5; ++i) {
        simulator_.Unplug();
        ASSERT_TRUE(Disconnects()) << i;
        simulator_.Replug();
        ASSERT_TRUE(Connects()) << i;
        ASSERT_TRUE(Identifies()) << i;
    }
}

TEST_F(DongleOnSerialPort, StopAndStartConnectAgain) {
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(Connects()) << i;
        kSerialTransport.Stop();
        EXPECT_EQ(State(kDonglePort), PortState::kUnused);
        EXPECT_EQ(serial->ports[kDonglePort].monitor_thread, nullptr) << "its threads have ended";
        kSerialTransport.Start();
    }
}

}  // namespace
}  // namespace tarvik::test
