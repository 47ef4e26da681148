#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/config.h"
#include "transport/ble/ble_connection.h"
#include "transport/ble/ble_state.h"
#include "transport/transport.h"
#include "unit/ble/fake_radio.h"
#include "unit/test_support.h"

namespace tarvik::test {

inline constexpr std::uint32_t kScanMs = 20;

// The transport in front of the fake radio, initialised and started.
class BleFixture : public testing::Test {
protected:
    void SetUp() override {
        FakeRadio::Reset();
        config = {};
        config.useBle = true;
        kBleTransport.Init();
        kBleTransport.Start();
    }
    void TearDown() override {
        kBleTransport.Deinit();
        EXPECT_TRUE(Eventually([] { return FakeRadio::devices == 0 && FakeRadio::radios == 0; }));
        EXPECT_EQ(FakeRadio::scans, 0);
        EXPECT_EQ(FakeRadio::threads, 0);
        EXPECT_EQ(FakeRadio::BrokenRules(), std::vector<std::string>());
        config = {};
    }

    static std::vector<DeviceReport> Scan(std::uint32_t timeout_ms = kScanMs) {
        std::vector<DeviceReport> reports;
        kBleTransport.UpdateDevices(
            timeout_ms,
            [](void* context, const DeviceReport& report) {
                static_cast<std::vector<DeviceReport>*>(context)->push_back(report);
            },
            &reports);
        return reports;
    }
    // The queues of the one dongle that a scan finds.
    static DeviceQueues* Connect() {
        const std::vector<DeviceReport> reports = Scan();
        EXPECT_EQ(reports.size(), 1u);
        return reports.empty() ? nullptr : reports[0].queues;
    }
    static std::size_t ConnectedCount() {
        const LockGuard hold(ble->BleCriticalSection);
        return ble->connected.size();
    }
    static PacketPtr Arrives(DeviceQueues* queues, std::uint32_t type) {
        return WaitForPacket(queues, type, 10'000, kNoTag);
    }
    static bool Contains(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }
};

}  // namespace tarvik::test
