#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "link/packet_queue.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "support/memory.h"
#include "transport/ble/ble_radio.h"

namespace tarvik {

inline constexpr std::uint32_t kBleTransportId = 3;
inline constexpr std::uint32_t kBleMtu = 244;

class BleConnection;
struct BleConnectRequest;

template <typename T>
using BleList = std::vector<T, TrackedAllocator<T>>;

// The queues of one dongle. Never released: links keep a pointer to them while the dongle is gone,
// and use it again when the dongle is back.
struct BleQueueSet {
    explicit BleQueueSet(std::uint64_t of) : address(of) {}

    const std::uint64_t address;
    DeviceQueues queues;
    const BleConnection* owner = nullptr;  // frees them at its end; guarded by BleCriticalSection
};

struct BleState {
    std::atomic<bool> initialized{false};
    std::atomic<bool> closing{false};  // Deinit runs: every wait ends

    OsLock scan_lock;                 // one scan at a time; taken before BleCriticalSection
    std::shared_ptr<BleRadio> radio;  // guarded by scan_lock; each connection has its own share

    // Guards everything below. Never held while the radio is called: its handlers take this lock.
    OsLock BleCriticalSection;
    const BleScan* scan = nullptr;      // the running scan
    BleList<std::uint64_t> discovered;  // addresses of the dongles that this scan has found
    BleList<std::uint64_t> pending;     // those still to be connected
    BleList<std::shared_ptr<BleConnection>> connected;
    BleList<std::shared_ptr<BleConnectRequest>> attempts;
    BleList<BleQueueSet*> queue_sets;
};
extern Immortal<BleState> ble;

}  // namespace tarvik
