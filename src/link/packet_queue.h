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

// A queue of packets, oldest first. Finding a packet by type or by answered request costs the same
// at any length. Its memory must outlive every thread that may still call in.
struct PacketQueue {
    std::atomic<bool> active{false};  // between InitializeQueue and FreeQueue
    OsLock lock;                      // guards everything below
    OsCondition drained;              // signalled when the last waiter has left
    // What waiters sleep on. They belong to the queue, not to the waiter: a waiter is woken after
    // the lock was released, when it may have returned already.
    static constexpr std::uint32_t kWakeUps = 16;
    OsCondition wake_ups[kWakeUps];
    PacketNode* head = nullptr;  // oldest
    PacketNode* tail = nullptr;  // newest
    PacketIndex* index = nullptr;
    PacketWaiter* first_waiter = nullptr;  // longest waiting
    PacketWaiter* last_waiter = nullptr;
    std::uint32_t sleepers = 0;
    std::uint32_t wake_ups_in_use = 0;  // one bit each
    std::uint64_t count = 0;
    std::uint64_t bytes = 0;  // of all packets, as PeerLimits counts them
    // What happens at PeerLimits::queue_bytes: the oldest packets go, or (false) only answers that
    // the peer asks for are refused. Set before the queue is used.
    bool drops_oldest = false;
    bool overflow_logged = false;
};

// One per connected dongle: created by its transport, kept by its module.
struct DeviceQueues {
    // Nobody may ever claim what a dongle sends. What is sent to it depends on the application.
    DeviceQueues() { rx.drops_oldest = true; }

    // True while the dongle is connected. Otherwise waits and sends give up.
    std::atomic<bool> available{false};
    OsLock device_lock;
    OsCondition device_changed;
    PacketQueue rx;
    PacketQueue tx;
    std::atomic<std::uint32_t> mtu{0};  // largest packet carried whole; 0 means 65535
};

// Does nothing if the queue is active. After FreeQueue, waits until the last waiter has left.
void InitializeQueue(PacketQueue* queue);
// Releases every packet, wakes every waiter and returns after they have left.
void FreeQueue(PacketQueue* queue);

// True: the queue owns the packet. False (queue missing or inactive, or no memory for a node): it
// still belongs to the caller.
bool EnqueueTransmitPacket(DeviceQueues* queues, PacketPtr& packet);
bool EnqueueReceivedPacket(DeviceQueues* queues, PacketPtr& packet);  // classifies and tags
bool AppendPacket(PacketQueue* queue, PacketPtr& packet, std::uint32_t tag);
// Takes the packet only if the dongle is available at the moment of queueing: since the caller
// looked, the queue may have been freed and initialised for the next connection.
bool EnqueueForAvailable(DeviceQueues* queues, PacketPtr& packet);

// Whether a packet that the peer has asked for may be queued. False, logged once: it keeps asking,
// but does not take the answers.
bool HasRoomForAnswers(PacketQueue* queue);

struct PacketFilterArgument {
    std::uint32_t type;
    std::uint32_t id;  // request id; used by MatchTypeAndId only
};
// A filter reads only the packet and the argument. It is called with the queue's lock held.
using PacketFilter = bool (*)(const Packet& packet, const PacketFilterArgument& argument);
bool MatchTypeAndId(const Packet& packet, const PacketFilterArgument& argument);
bool MatchType(const Packet& packet, const PacketFilterArgument& argument);

struct PacketWait {
    PacketFilter filter;  // null accepts any packet
    PacketFilterArgument argument;
    bool remove;
    std::int32_t timeout_ms;  // 0 does not wait, -1 waits without limit
    // Null: WakeQueueWaiters ends the wait. Otherwise it makes the wait check the flags. A packet
    // that comes after they ask to stop is not taken: it stays for the next waiter.
    const WaitFlags* flags;
};
// The oldest packet that the wait accepts. With `remove` the caller owns it.
Packet* FindPacket(PacketQueue* queue, const PacketWait& wait);

// The oldest packet that the filter accepts (null: any), waiting for one if needed. timeout_ms: 0
// does not wait, -1 waits without limit. With `remove` the caller owns the result; otherwise it
// stays in the queue.
Packet* QueueFindFilterInternal(PacketQueue* queue, std::int32_t timeout_ms, PacketFilter filter,
                                const PacketFilterArgument& argument, bool remove);
// The oldest packet, removed, waiting at most timeout_ms.
PacketPtr TakePacket(PacketQueue* queue, std::int32_t timeout_ms);
// The oldest packet whose node has this tag, removed; does not wait.
PacketPtr QueueRemoveByTag(PacketQueue* queue, std::uint32_t tag);
// Makes every sleeping waiter return nothing now, without freeing the queue. A WaitForPacket only
// checks its flags, and sleeps again if none asks it to stop.
void WakeQueueWaiters(PacketQueue* queue);

// Waits for a packet of this type (and, unless `id` is kNoTag, for this request id). Gives up when
// the dongle goes away and, within 100 ms, when `abort` is set or `running` is cleared. Both may be
// null.
PacketPtr WaitForPacket(DeviceQueues* queues, std::uint32_t type, std::uint32_t timeout_ms,
                        std::uint32_t id, const std::atomic<bool>* abort = nullptr,
                        const std::atomic<bool>* running = nullptr);

}  // namespace tarvik
