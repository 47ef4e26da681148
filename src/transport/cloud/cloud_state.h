#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/thread.h"

namespace tarvik {

// A sealed packet is 24 bytes longer: one of this size then is just within MAX_PKT_SIZE.
inline constexpr std::uint32_t kCloudMtu = 4072;

enum class ConnState : std::uint32_t {
    kIdle = 0,
    kConnecting = 1,
    kConnected = 2,
    kFailed = 3,  // given up until the connection is requested again
    kDisconnecting = 4,
};

// A dongle's MAC address.
using DeviceAddress = std::array<std::uint8_t, 6>;
DeviceAddress AddressFromMac(const std::uint8_t* mac);

// One connection per process. It carries all dongles behind the relay, so they share the queues.
struct CloudState {
    std::atomic<bool> initialized{false};
    std::atomic<bool> running{false};  // the connection thread has been started
    OsLock start_lock;                 // held while the connection thread is started or waited for
    OsThread* connection_thread = nullptr;  // guarded by start_lock

    // Commands to the connection thread.
    std::atomic<bool> connectRequested{false};
    std::atomic<bool> quitRequested{false};

    // Written by the connection thread. At kDisconnecting the connection's threads end.
    std::atomic<ConnState> connState{ConnState::kIdle};
    std::atomic<bool> linkUp{false};  // from a completed login to the next connection attempt
    OsThread* receive_thread = nullptr;
    std::atomic<std::uint32_t> receiver_id{0};  // of the receive thread, while it receives
    // A callback that runs on the receive thread has stopped the transport: nobody waits for it.
    std::atomic<bool> receiver_left{false};
    OsThread* transmit_thread = nullptr;

    OsLock change_lock;   // held only while linkUp and quitRequested are looked at or set
    OsCondition changed;  // woken when one of them has been set

    OsLock sessionLock;  // guards the carrier's handles

    OsLock address_lock;
    DeviceAddress last_addressed{};  // guarded by address_lock
    bool addressPending = false;     // guarded by address_lock: send it again after a reconnection

    DeviceQueues queues;
};
extern Immortal<CloudState> cloud;

inline bool IsDisconnecting() { return cloud->connState == ConnState::kDisconnecting; }

// Sets the flag and wakes the threads that sleep on `changed`.
void SetAndAnnounce(std::atomic<bool>* flag);

}  // namespace tarvik
