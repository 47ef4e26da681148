#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "platform/lock.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/bluez_bus.h"

// What the parts of the radio over BlueZ know of each other.
namespace tarvik {

// The addresses of the dongles that this radio has open, by which a scan tells them from those that
// an earlier process has left connected.
class BluezOpenDevices {
public:
    void Add(std::uint64_t address) {
        const LockGuard hold(lock_);
        addresses_.insert(address);
    }
    void Remove(std::uint64_t address) {
        const LockGuard hold(lock_);
        addresses_.erase(address);
    }
    bool Contains(std::uint64_t address) {
        const LockGuard hold(lock_);
        return addresses_.count(address) > 0;
    }

private:
    OsLock lock_;
    std::set<std::uint64_t> addresses_;
};

// "A0:B1:C2:D3:E4:F5", the case of the letters aside.
std::optional<std::uint64_t> BluezAddress(const std::string& text);
// The adapter to use. Throws when there is none, or none that is switched on.
std::string PoweredAdapter(const std::vector<BluezObject>& objects);

std::unique_ptr<BleScan> CreateBluezScan(std::shared_ptr<BluezBus> bus,
                                         std::shared_ptr<BluezOpenDevices> open_devices,
                                         BleScan::Handler& handler);
// Null: BlueZ does not know the dongle, or cannot reach it.
std::unique_ptr<BleDevice> OpenBluezDevice(const std::shared_ptr<BluezBus>& bus,
                                           const std::shared_ptr<BluezOpenDevices>& open_devices,
                                           std::uint64_t address);

}  // namespace tarvik
