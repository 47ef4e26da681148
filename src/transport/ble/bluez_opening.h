#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "platform/lock.h"
#include "platform/thread.h"
#include "transport/ble/bluez_bus.h"

namespace tarvik {

// Connecting the message bus, on a thread of its own: a bus that accepts and then says nothing
// holds whoever connects it for as long as the system's library pleases.
class BluezOpening {
public:
    // Throws BleError when there is no thread.
    static std::shared_ptr<BluezOpening> Begin();
    ~BluezOpening();
    BluezOpening() = default;
    BluezOpening(const BluezOpening&) = delete;
    BluezOpening& operator=(const BluezOpening&) = delete;

    // For one caller at a time. Null: it is still under way. Throws BleError when it has failed.
    std::shared_ptr<BluezBus> Await(std::chrono::milliseconds limit);

private:
    static void Run(void* share);
    bool AwaitEnd(std::chrono::milliseconds limit);

    OsThread* thread_ = nullptr;
    OsLock lock_;  // guards what follows
    OsCondition changed_;
    bool over_ = false;
    std::shared_ptr<BluezBus> bus_;  // null: it failed
    std::string error_;
};

}  // namespace tarvik
