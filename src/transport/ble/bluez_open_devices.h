#pragma once

#include <cstdint>
#include <map>

#include "platform/lock.h"

namespace tarvik {

// The dongles that this radio has open. A scan uses it to recognise dongles that an earlier process
// left connected. If a dongle is opened again before its previous device is closed, it belongs to
// the new device: BlueZ has only one connection.
class BluezOpenDevices {
public:
    // Returns the number of this opening.
    std::uint64_t Add(std::uint64_t address) {
        const LockGuard hold(lock_);
        latest_[address] = ++openings_;
        return openings_;
    }
    // False: the dongle has been opened again since.
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

}  // namespace tarvik
