#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "conformance/framework/simulator.h"
#include "conformance/framework/waiting.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/winrt_delegate.h"
#include "unit/ble/ble_error.h"
#include "unit/ble_winrt/classes.h"
#include "unit/ble_winrt/test_limits.h"

namespace tarvik::test {

using conformance::Eventually;

inline constexpr std::uint64_t kDongleAddress = 0x0242524E5801;
inline constexpr std::uint64_t kUnknownAddress = 0x0242524E58FF;

inline constexpr BleUuid kServiceUuid = {0x59, 0x46, 0x2f, 0x12, 0x95, 0x43, 0x99, 0x99,
                                         0x12, 0xc8, 0x58, 0xb4, 0x59, 0xa2, 0x71, 0xff};
inline constexpr BleUuid kCharacteristicUuid = {0x34, 0xa2, 0x42, 0xa7, 0x5b, 0xc9, 0x45, 0xd3,
                                                0x92, 0xe4, 0xaf, 0x6f, 0x91, 0x38, 0xff, 0x00};

// Records what a scan reports.
class ScanRecord : public BleScan::Handler {
public:
    struct Entry {
        std::uint64_t address;
        std::int32_t rssi;
        std::string name;
    };
    void Advertised(const BleAdvertisement& advertisement) noexcept override {
        const std::lock_guard hold(lock_);
        entries_.push_back({advertisement.address,
                            advertisement.rssi,
                            {advertisement.name.begin(), advertisement.name.end()}});
    }
    void Failed(const BleError& error) noexcept override {
        const std::lock_guard hold(lock_);
        errors_.push_back(error.message());
    }

    std::vector<Entry> Entries() const {
        const std::lock_guard hold(lock_);
        return entries_;
    }
    std::vector<std::string> Errors() const {
        const std::lock_guard hold(lock_);
        return errors_;
    }
    // True if some advertisement had this name.
    bool Heard(const std::string& name) const {
        for (const Entry& entry : Entries()) {
            if (entry.name == name) return true;
        }
        return false;
    }

private:
    mutable std::mutex lock_;
    std::vector<Entry> entries_;
    std::vector<std::string> errors_;
};

// Records what a device reports.
class DeviceRecord : public BleDevice::Handler {
public:
    void Notified(std::span<const std::uint8_t> value) noexcept override {
        const std::lock_guard hold(lock_);
        values_.emplace_back(value.begin(), value.end());
    }
    void NotificationFailed(const BleError& error) noexcept override {
        const std::lock_guard hold(lock_);
        errors_.push_back(error.message());
    }
    void Lost() noexcept override { ++losses_; }

    std::vector<std::string> Values() const {
        const std::lock_guard hold(lock_);
        return values_;
    }
    std::vector<std::string> Errors() const {
        const std::lock_guard hold(lock_);
        return errors_;
    }
    int Losses() const { return losses_; }

private:
    mutable std::mutex lock_;
    std::vector<std::string> values_;
    std::vector<std::string> errors_;
    std::atomic<int> losses_{0};
};

// The dongle advertises, and this thread uses the radio. No test may break a rule or leave anything
// unreleased.
class WinrtRadio : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(conformance::Simulator::IsThere()) << "needs the simulated radio";
        simulator.Reset();
        UseRadio(LibraryWinrtLimits());
    }
    void TearDown() override {
        if (radio != nullptr) radio->LeaveThread();
        radio.reset();
        EXPECT_EQ(TakeReport(), "");
        EXPECT_TRUE(Eventually([] { return winrt::delegates_alive == 0; }));
        EXPECT_TRUE(Eventually([&] { return RadioSays("\"connected\":false"); }));
    }

    // Opens the radio, again if there is one, with these time limits.
    void UseRadio(const WinrtLimits& limits) {
        if (radio != nullptr) radio->LeaveThread();
        SetWinrtLimits(limits);
        radio = OpenBleRadio();
        radio->EnterThread();
    }
    bool RadioSays(const std::string& part) {
        return simulator.Command("radio").find(part) != std::string::npos;
    }
    // Scans until the system knows the dongle.
    void Scan() {
        ScanRecord record;
        const std::unique_ptr<BleScan> scan = radio->CreateScan(record);
        scan->Start();
        ASSERT_TRUE(Eventually([&] { return record.Heard("Brennix"); }));
        scan->Stop();
    }

    const RuntimeClasses classes;
    conformance::Simulator simulator;
    std::unique_ptr<BleRadio> radio;
};

// As above, and the system knows the dongle.
class WinrtDongle : public WinrtRadio {
protected:
    void SetUp() override {
        WinrtRadio::SetUp();
        Scan();
    }

    void Open() {
        device = radio->Open(kDongleAddress);
        ASSERT_NE(device, nullptr);
    }
    // All steps up to the subscription.
    void Connect() {
        Open();
        ASSERT_EQ(device->DiscoverServices(), BleStatus::kSuccess);
        ASSERT_TRUE(device->SelectService(kServiceUuid));
        ASSERT_EQ(device->DiscoverCharacteristics(), BleStatus::kSuccess);
        ASSERT_TRUE(device->SelectCharacteristic(kCharacteristicUuid));
        ASSERT_EQ(device->Subscribe(record), BleStatus::kSuccess);
    }
    BleStatus Write(const std::string& bytes) {
        return device->Write({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    }
    BleStatus WriteIden() { return Write(std::string("NEDI\x08\0\0\0", 8)); }

    void TearDown() override {
        device.reset();
        WinrtRadio::TearDown();
    }

    DeviceRecord record;
    std::unique_ptr<BleDevice> device;
};

}  // namespace tarvik::test
