#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
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

// The queues of one dongle. Never released: links keep a pointer to the queues of a dongle that has
// gone, and find it behind them when it comes back.
struct BleQueueSet {
    explicit BleQueueSet(std::uint64_t of) : address(of) {}

    const std::uint64_t address;
    DeviceQueues queues;
    const BleConnection* owner = nullptr;  // shuts them down in the end; under BleCriticalSection
};

struct BleState {
    std::atomic<bool> initialized{false};
    std::atomic<bool> closing{false};  // the end is under way: whoever waits gives up

    OsLock scan_lock;                 // one scan at a time; comes before BleCriticalSection
    std::shared_ptr<BleRadio> radio;  // guarded by scan_lock; connections have a share of their own

    // Guards all that follows. Nothing of the radio is called inside: its handlers take this lock.
    OsLock BleCriticalSection;
    const BleScan* scan = nullptr;      // the scan under way
    BleList<std::uint64_t> discovered;  // addresses seen by this scan
    BleList<std::uint64_t> pending;     // those of dongles, to be connected
    BleList<std::shared_ptr<BleConnection>> connected;
    BleList<std::shared_ptr<BleConnectRequest>> attempts;
    BleList<BleQueueSet*> queue_sets;
};
extern Immortal<BleState> ble;

// An address as it is shown: "A0:B1:C2:D3:E4:F5".
struct BleAddressText {
    explicit BleAddressText(std::uint64_t address);
    char text[18];
};

// The message of the exception that is being handled. To be made inside a handler.
struct BleErrorText {
    BleErrorText();
    explicit BleErrorText(const BleError& error);
    char text[512];
};

// Around everything that a thread does with the radio.
class BleRadioThread {
public:
    explicit BleRadioThread(BleRadio& radio) : radio_(radio) { radio_.EnterThread(); }
    ~BleRadioThread() { radio_.LeaveThread(); }
    BleRadioThread(const BleRadioThread&) = delete;
    BleRadioThread& operator=(const BleRadioThread&) = delete;

private:
    BleRadio& radio_;
};

}  // namespace tarvik
