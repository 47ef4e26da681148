#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "link/packet_queue.h"
#include "platform/event.h"
#include "platform/thread.h"
#include "transport/ble/ble_radio.h"

namespace tarvik {

// One attempt to connect a dongle. It may take longer than the scan that started it.
struct BleConnectRequest {
    BleConnectRequest(std::shared_ptr<BleRadio> with, std::uint64_t to)
        : radio(std::move(with)), address(to) {}
    ~BleConnectRequest();
    BleConnectRequest(const BleConnectRequest&) = delete;
    BleConnectRequest& operator=(const BleConnectRequest&) = delete;

    const std::shared_ptr<BleRadio> radio;
    const std::uint64_t address;
    bool abandoned = false;  // the transport closes; guarded by BleCriticalSection
    OsEvent* completed = nullptr;
    bool success = false;            // valid once `completed` is set
    DeviceQueues* queues = nullptr;  // valid once `completed` is set
    OsThread* thread = nullptr;      // closed by EndBleRequest
};

// The running attempt to connect this dongle, or a new one. Null: it could not be started, which
// has been logged.
std::shared_ptr<BleConnectRequest> RequestBleConnection(std::uint64_t address);
// Joins the thread of an attempt that is complete or abandoned, and removes it from the list.
void EndBleRequest(const std::shared_ptr<BleConnectRequest>& request, std::int32_t limit_ms);

}  // namespace tarvik
