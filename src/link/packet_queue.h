#pragma once

#include <atomic>
#include <cstdint>

#include "link/packet.h"
#include "link/wait_flags.h"
#include "platform/lock.h"

namespace tarvik {

struct PacketNode;
struct PacketWaiter;
struct PacketIndex;

// An unbounded queue of packets, oldest first, that can be searched by type and by the request it
// answers at the same cost however long it is. Static or part of a longer-lived record; its
// memory must outlive every thread that may still call in.
struct PacketQueue {
    std::atomic<bool> active{false};  // between InitializeQueue and FreeQueue
    OsLock lock;                      // guards everything below
    OsCondition drained;              // woken when the last waiter has left
    // What waiters sleep on. Part of the queue and not of the waiter, so that a packet's taker can
    // be woken after the lock has been left, even if it has gone by then.
    static constexpr std::uint32_t kWakeUps = 16;
    OsCondition wake_ups[kWakeUps];
    PacketNode* head = nullptr;  // oldest
    PacketNode* tail = nullptr;  // newest
    PacketIndex* index = nullptr;
    PacketWaiter* first_waiter = nullptr;  // longest waiting
    PacketWaiter* last_waiter = nullptr;
    std::uint32_t sleepers = 0;
    std::uint32_t wake_ups_in_use = 0;  // bit by bit
    std::uint64_t count = 0;
};

// Per connected dongle: what a transport hands upward and modules keep.
struct DeviceQueues {
    // While the dongle is connected; waits and sends give up without.
    std::atomic<bool> available{false};
    OsLock device_lock;
    OsCondition device_changed;
    PacketQueue rx;
    PacketQueue tx;
    std::atomic<std::uint32_t> mtu{0};  // largest packet carried whole; 0 means 65535
};

// Returns at once when it is active; after FreeQueue, waits until the last waiter has left.
void InitializeQueue(PacketQueue* queue);
// Releases every packet, wakes every waiter and returns when they have left.
void FreeQueue(PacketQueue* queue);

// Each returns true when the queue has taken the packet; false (queue missing or inactive, or no
// memory for a node): it is still the caller's.
bool EnqueueTransmitPacket(DeviceQueues* queues, PacketPtr& packet);
bool EnqueueReceivedPacket(DeviceQueues* queues, PacketPtr& packet);  // classifies and tags
bool AppendPacket(PacketQueue* queue, PacketPtr& packet, std::uint32_t tag);
// Takes it only while the dongle is available, as of the moment that it is queued: the queue may
// have been freed and initialized for the next connection since the caller looked.
bool EnqueueForAvailable(DeviceQueues* queues, PacketPtr& packet);

struct PacketFilterArgument {
    std::uint32_t type;
    std::uint32_t id;  // request id; used by MatchTypeAndId only
};
// A filter looks at the packet and its argument only, and is called with the queue's lock held.
using PacketFilter = bool (*)(const Packet& packet, const PacketFilterArgument& argument);
bool MatchTypeAndId(const Packet& packet, const PacketFilterArgument& argument);
bool MatchType(const Packet& packet, const PacketFilterArgument& argument);

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

// The oldest packet that the filter accepts (a null filter accepts any), waiting for one if
// needed: timeout_ms 0 does not wait, -1 waits without limit. With `remove` the caller owns the
// result; without, it stays in the queue and belongs to it.
Packet* QueueFindFilterInternal(PacketQueue* queue, std::int32_t timeout_ms, PacketFilter filter,
                                const PacketFilterArgument& argument, bool remove);
// The oldest packet, removed, waiting at most timeout_ms.
PacketPtr TakePacket(PacketQueue* queue, std::int32_t timeout_ms);
// The oldest packet whose node has this tag, removed; does not wait.
PacketPtr QueueRemoveByTag(PacketQueue* queue, std::uint32_t tag);
// Makes every sleeping waiter return nothing now, without freeing the queue; a WaitForPacket only
// looks at its flags at once, and sleeps on if none asks it to give up.
void WakeQueueWaiters(PacketQueue* queue);

// Waits for a packet of this type (and, unless `id` is kNoTag, for this request id). Gives up when
// the dongle goes away and, within 100 ms, when one of the flags asks for it: `abort` set, or
// `running` cleared. Both may be null.
PacketPtr WaitForPacket(DeviceQueues* queues, std::uint32_t type, std::uint32_t timeout_ms,
                        std::uint32_t id, const std::atomic<bool>* abort = nullptr,
                        const std::atomic<bool>* running = nullptr);

}  // namespace tarvik
