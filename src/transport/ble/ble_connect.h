#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "link/packet_queue.h"
#include "platform/event.h"
#include "platform/thread.h"
#include "transport/ble/ble_radio.h"

namespace tarvik {

// One attempt to connect a dongle. It outlives a scan that has given up waiting for it.
struct BleConnectRequest {
    BleConnectRequest(std::shared_ptr<BleRadio> with, std::uint64_t to)
        : radio(std::move(with)), address(to) {}
    ~BleConnectRequest();
    BleConnectRequest(const BleConnectRequest&) = delete;
    BleConnectRequest& operator=(const BleConnectRequest&) = delete;

    const std::shared_ptr<BleRadio> radio;
    const std::uint64_t address;
    bool abandoned = false;  // guarded by BleCriticalSection: nobody wants the dongle any more
    OsEvent* completed = nullptr;  // the results stand once it is set
    bool success = false;
    DeviceQueues* queues = nullptr;
    OsThread* thread = nullptr;  // closed by whoever ends the request
};

// The attempt to connect this dongle that is under way already, or a new one. Null: it could not be
// started, which has been logged.
std::shared_ptr<BleConnectRequest> RequestBleConnection(std::uint64_t address);
// Takes an attempt that has completed, or is given up, off the list.
void EndBleRequest(const std::shared_ptr<BleConnectRequest>& request, std::int32_t limit_ms);

}  // namespace tarvik
