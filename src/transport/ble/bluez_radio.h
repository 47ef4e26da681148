#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/lock.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/bluez_bus.h"

// What the parts of the radio over BlueZ know of each other.
namespace tarvik {

// The dongles that this radio has open, by which a scan tells them from those that an earlier
// process has left connected. One that is opened anew before its last device has been closed
// belongs to the new device: BlueZ knows a single connection.
class BluezOpenDevices {
public:
    // Returns the number of this opening.
    std::uint64_t Add(std::uint64_t address) {
        const LockGuard hold(lock_);
        latest_[address] = ++openings_;
        return openings_;
    }
    // False: it has been opened anew since.
    bool IsLatest(std::uint64_t address, std::uint64_t opening) {
        const LockGuard hold(lock_);
        const auto found = latest_.find(address);
        return found != latest_.end() && found->second == opening;
    }
    void Remove(std::uint64_t address, std::uint64_t opening) {
        const LockGuard hold(lock_);
        const auto found = latest_.find(address);
        if (found != latest_.end() && found->second == opening) latest_.erase(found);
    }
    bool Contains(std::uint64_t address) {
        const LockGuard hold(lock_);
        return latest_.count(address) > 0;
    }

private:
    OsLock lock_;
    std::uint64_t openings_ = 0;
    std::map<std::uint64_t, std::uint64_t> latest_;  // number of the last opening, by address
};

// "A0:B1:C2:D3:E4:F5", the case of the letters aside.
std::optional<std::uint64_t> BluezAddress(const std::string& text);
bool IsBelow(const std::string& path, const std::string& parent);
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
