#pragma once

#include <memory>
#include <string>
#include <vector>

#include "unit/ble/fake_radio.h"
#include "unit/ble/transport_fixture.h"

namespace tarvik::test {

inline constexpr std::uint32_t kScanMs = 1;  // the fake radio reports all dongles at once

// The transport on the fake radio.
class BleFixture : public BleTransportFixture {
protected:
    void SetUp() override {
        FakeRadio::Reset();
        BleTransportFixture::SetUp();
    }
    void TearDown() override {
        BleTransportFixture::TearDown();
        EXPECT_TRUE(Eventually([] { return FakeRadio::devices == 0 && FakeRadio::radios == 0; }));
        EXPECT_EQ(FakeRadio::scans, 0);
        EXPECT_EQ(FakeRadio::threads, 0);
        EXPECT_EQ(FakeRadio::BrokenRules(), std::vector<std::string>());
    }

    static std::vector<DeviceReport> Scan(std::uint32_t timeout_ms = kScanMs) {
        return ScanFor(timeout_ms);
    }
    // The queues of the one dongle that a scan finds. Returns after the scan's IDEN has been sent.
    static DeviceQueues* Connect() {
        LogCapture log;
        const std::vector<DeviceReport> reports = Scan();
        EXPECT_EQ(reports.size(), 1u);
        EXPECT_TRUE(Eventually([&] { return log.Has("[BLE-TX] Sent 8 bytes"); }));
        return reports.empty() ? nullptr : reports[0].queues;
    }
};

}  // namespace tarvik::test
