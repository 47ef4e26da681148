#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/config.h"
#include "transport/ble/ble_connection.h"
#include "transport/ble/ble_state.h"
#include "transport/transport.h"
#include "unit/test_support.h"

namespace tarvik::test {

// The transport, initialized and started, on the radio that the program links.
class BleTransportFixture : public testing::Test {
protected:
    void SetUp() override {
        config = {};
        config.useBle = true;
        kBleTransport.Init();
        kBleTransport.Start();
    }
    void TearDown() override {
        kBleTransport.Deinit();
        config = {};
    }

    static std::vector<DeviceReport> ScanFor(std::uint32_t timeout_ms) {
        std::vector<DeviceReport> reports;
        kBleTransport.UpdateDevices(
            timeout_ms,
            [](void* context, const DeviceReport& report) {
                static_cast<std::vector<DeviceReport>*>(context)->push_back(report);
            },
            &reports);
        return reports;
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
