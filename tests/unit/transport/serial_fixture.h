#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/config.h"
#include "transport/serial/serial_state.h"
#include "transport/transport.h"
#include "unit/test_support.h"
#include "unit/transport/fake_discovery.h"
#include "unit/transport/fake_port.h"
#include "unit/transport/patient_limits.h"
#include "unit/transport/switched_limits.h"

namespace tarvik::test {

// The serial transport with fake ports, not yet started.
class SerialFixture : public testing::Test {
protected:
    static constexpr std::int32_t kPort = 7;  // where one is enough
    static constexpr std::uint64_t kSilenceStepMs = 500;

    void SetUp() override {
        config = {};
        config.useSerial = true;
        FailDiscovery(false);
        kSerialTransport.Init();
    }
    void TearDown() override {
        kSerialTransport.Deinit();
        FakePort::RemoveAll();
        for (const auto& state : serial->port_states)
            EXPECT_EQ(state, PortState::kUnused);
    }

    static PortState StateOf(std::int32_t number) {
        return serial->port_states[static_cast<std::size_t>(number)];
    }
    static SerialPort& PortOf(std::int32_t number) {
        return serial->ports[static_cast<std::size_t>(number)];
    }
    static DeviceQueues* QueuesOf(std::int32_t number) { return &PortOf(number).queues; }
    static bool Reaches(std::int32_t number, PortState state) {
        return Eventually([=] { return StateOf(number) == state; });
    }
    // Plugs a dongle in and waits until it is connected.
    static std::shared_ptr<FakePort> Connect(std::int32_t number) {
        std::shared_ptr<FakePort> port = FakePort::Plug(number);
        kSerialTransport.Start();
        EXPECT_TRUE(Reaches(number, PortState::kConnected));
        return port;
    }
    // For on_packet of a dongle that does not answer: advances the tick until the library asks
    // again or gives up. Since this holds up the transmit thread, every question reaches the
    // dongle.
    static void StaySilent(FakeTick& tick, std::int32_t number) {
        const auto is_asked_again = [number] {
            PacketQueue& queue = QueuesOf(number)->tx;
            const LockGuard hold(queue.lock);
            return queue.count > 0;
        };
        EXPECT_TRUE(Eventually([&] {
            if (is_asked_again() || !PortOf(number).running) return true;
            tick.Advance(kSilenceStepMs);
            return false;
        }));
    }
    // The next scan may already have opened it again.
    static bool Closes(const FakePort& port) {
        return Eventually([&port] { return port.CloseCount() > 0; });
    }
    // After this, no scan works on ports that it found before.
    static void AwaitEndOfScan() { const LockGuard hold(serial->session_lock); }
    static PacketPtr Receive(std::int32_t number, std::uint32_t type) {
        return WaitForPacket(QueuesOf(number), type, 10'000, kNoTag);
    }
    // A line of the log with a handle: the texts before and after it.
    static bool HasWithHandle(const LogCapture& log, const std::string& before,
                              const std::string& after) {
        for (const std::string& line : log.Lines()) {
            if (line.rfind(before, 0) == 0 && line.size() > before.size() + after.size() &&
                line.compare(line.size() - after.size(), after.size(), after) == 0) {
                return true;
            }
        }
        return false;
    }
};

}  // namespace tarvik::test
