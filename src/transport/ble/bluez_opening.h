#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/lock.h"
#include "platform/thread.h"
#include "transport/ble/ble_text.h"
#include "transport/ble/bluez_bus.h"

namespace tarvik {

// Connects the message bus on a separate thread: a bus that accepts the connection and then stays
// silent blocks its caller for a time that only the system's library limits.
class BluezOpening {
public:
    // Throws a BleError if the thread cannot be started.
    static std::shared_ptr<BluezOpening> Begin();
    ~BluezOpening();
    BluezOpening() = default;
    BluezOpening(const BluezOpening&) = delete;
    BluezOpening& operator=(const BluezOpening&) = delete;

    // For one caller at a time. Null: it has not finished in time. Throws a BleError if it failed.
    std::shared_ptr<BluezBus> Await(std::uint32_t limit_ms);

private:
    static void Run(void* share);
    bool AwaitEnd(std::uint32_t limit_ms);

    OsThread* thread_ = nullptr;
    OsLock lock_;  // guards everything below
    OsCondition changed_;
    bool over_ = false;
    std::shared_ptr<BluezBus> bus_;  // null: it failed
    std::optional<BleErrorText> error_;
};

}  // namespace tarvik
