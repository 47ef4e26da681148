#pragma once

#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"

// The one way in which threads sleep on a packet queue.
namespace tarvik {

// The longest that a sleeping waiter takes to see a flag or the tick change.
inline constexpr std::int32_t kWaitSliceMs = 50;

// What ends a wait before its time. Any may be null.
struct WaitFlags {
    const std::atomic<bool>* available = nullptr;
    const std::atomic<bool>* abort = nullptr;
    const std::atomic<bool>* running = nullptr;

    bool AskToStop() const {
        return (available != nullptr && !*available) || (abort != nullptr && *abort) ||
               (running != nullptr && !*running);
    }
};

struct PacketWait {
    PacketFilter filter;  // null accepts any packet
    PacketFilterArgument argument;
    bool remove;
    std::int32_t timeout_ms;  // 0 does not wait, -1 waits without limit
    // Null: WakeQueueWaiters ends the wait. Else it only makes the wait look at the flags. A packet
    // that comes once they ask to stop is not taken: it stays for whoever takes over.
    const WaitFlags* flags;
};

// The oldest packet that the wait accepts. With `remove` the caller owns it.
Packet* FindPacket(PacketQueue* queue, const PacketWait& wait);

}  // namespace tarvik
