#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/thread.h"

namespace tarvik {

// Sealed, a packet of this size is 24 bytes longer and stays within what is received whole.
inline constexpr std::uint32_t kCloudMtu = 4072;

enum class ConnState : std::uint32_t {
    kIdle = 0,
    kConnecting = 1,
    kConnected = 2,
    kFailed = 3,  // given up until the connection is asked for anew
    kDisconnecting = 4,
};

// As in ADDR: the first four bytes of a MAC address and the last two.
struct DeviceAddress {
    std::uint32_t first = 0;
    std::uint16_t last = 0;
    bool operator==(const DeviceAddress&) const = default;
};
DeviceAddress AddressFromMac(const std::uint8_t* mac);

// One connection a process; it carries all dongles behind the relay, so they share the queues.
struct CloudState {
    std::atomic<bool> initialized{false};
    std::atomic<bool> running{false};  // the connection thread has been started
    OsLock start_lock;  // held while the connection thread is started and while it is awaited
    OsThread* connection_thread = nullptr;  // guarded by start_lock

    // Commands to the connection thread.
    std::atomic<bool> connectRequested{false};
    std::atomic<bool> quitRequested{false};

    // The connection thread's; the threads of the connection end when it says disconnecting.
    std::atomic<ConnState> connState{ConnState::kIdle};
    std::atomic<bool> linkUp{false};  // from a completed login to the next connection attempt
    OsThread* receive_thread = nullptr;
    std::atomic<std::uint32_t> receiver_id{0};  // of the receive thread, while it receives
    // A callback that runs on the receive thread has stopped the transport: nobody waits for it.
    std::atomic<bool> receiver_left{false};
    OsThread* transmit_thread = nullptr;

    OsLock change_lock;   // held for no longer than it takes to look at what `changed` tells of
    OsCondition changed;  // woken when linkUp or quitRequested has been set

    OsLock sessionLock;  // guards the carrier's handles

    OsLock address_lock;
    DeviceAddress last_addressed;  // guarded by address_lock
    bool addressPending = false;   // likewise: to be sent again after a reconnection

    DeviceQueues queues;
};
extern Immortal<CloudState> cloud;

// Sets the flag and wakes who sleeps on `changed`.
void SetAndAnnounce(std::atomic<bool>* flag);

}  // namespace tarvik
