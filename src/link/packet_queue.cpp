#include "link/packet_queue.h"

#include <algorithm>
#include <bit>
#include <optional>
#include <utility>

#include "link/link_limits.h"
#include "link/packet_index.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/peer_limits.h"

namespace tarvik {

// A thread that waits for a packet. The record is on that thread's stack, and linked into the queue
// in order of arrival. It has its own condition, so that a packet wakes only the thread that gets
// it.
struct PacketWaiter {
    PacketWaiter(PacketQueue* queue, const PacketWait& wait);
    ~PacketWaiter();
    PacketWaiter(const PacketWaiter&) = delete;
    PacketWaiter& operator=(const PacketWaiter&) = delete;

    bool Accepts(const Packet& packet) const {
        return wait.filter == nullptr || wait.filter(packet, wait.argument);
    }

    void Sleep(std::int32_t timeout_ms) { woken->Wait(queue->lock, timeout_ms); }
    void Wake() { woken->WakeOne(); }
    // Null: it has been woken. Otherwise the caller wakes it with this, after releasing the lock.
    OsCondition* WakeLater() {
        if (!own) return woken;
        Wake();
        return nullptr;
    }

    PacketQueue* const queue;
    const PacketWait& wait;
    PacketWaiter* earlier;
    PacketWaiter* later = nullptr;
    OsCondition* woken;              // one of the queue's, or `own` if all are in use
    std::optional<OsCondition> own;  // lives no longer than the wait
    PacketPtr handed;                // the packet that ends this wait
    bool look_again = false;         // a matching packet was queued; for waits that do not remove
    bool cancelled = false;
};

namespace {

bool IsAskedToStop(const PacketWait& wait) {
    return wait.flags != nullptr && wait.flags->AskToStop();
}

OsCondition* BorrowWakeUp(PacketQueue* queue) {
    const int free = std::countr_one(queue->wake_ups_in_use);
    if (free >= static_cast<int>(PacketQueue::kWakeUps)) return nullptr;
    queue->wake_ups_in_use |= 1u << free;
    return &queue->wake_ups[free];
}

void ReturnWakeUp(PacketQueue* queue, const OsCondition* wake_up) {
    queue->wake_ups_in_use &= ~(1u << (wake_up - queue->wake_ups));
}

}  // namespace

PacketWaiter::PacketWaiter(PacketQueue* on_queue, const PacketWait& for_wait)
    : queue(on_queue),
      wait(for_wait),
      earlier(on_queue->last_waiter),
      woken(BorrowWakeUp(on_queue)) {
    if (woken == nullptr) woken = &own.emplace();
    (earlier != nullptr ? earlier->later : queue->first_waiter) = this;
    queue->last_waiter = this;
    ++queue->sleepers;
}

PacketWaiter::~PacketWaiter() {
    if (!own) ReturnWakeUp(queue, woken);
    (earlier != nullptr ? earlier->later : queue->first_waiter) = later;
    (later != nullptr ? later->earlier : queue->last_waiter) = earlier;
    --queue->sleepers;
    if (queue->sleepers == 0) queue->drained.WakeAll();
}

namespace {

// Everything below, up to Append, is called with the queue's lock held.

std::uint64_t CountedBytes(const Packet& packet) {
    return std::max(packet.length, GetPeerLimits().least_packet_bytes);
}

PacketNode* Unlink(PacketQueue* queue, PacketNode* node) {
    (node->older != nullptr ? node->older->newer : queue->head) = node->newer;
    (node->newer != nullptr ? node->newer->older : queue->tail) = node->older;
    queue->index->Remove(node);
    --queue->count;
    queue->bytes -= CountedBytes(*node->packet);
    return node;
}

PacketPtr RemoveNode(PacketQueue* queue, PacketNode* node) {
    PacketPtr packet(Unlink(queue, node)->packet);
    queue->index->ReturnNode(node);
    return packet;
}

PacketNode* Scan(const PacketQueue* queue, const PacketWait& wait) {
    PacketNode* node = queue->head;
    while (node != nullptr && !wait.filter(*node->packet, wait.argument))
        node = node->newer;
    return node;
}

// The oldest packet that the wait accepts. Only filters defined elsewhere need a scan.
PacketNode* FindNode(const PacketQueue* queue, const PacketWait& wait) {
    if (wait.filter == nullptr || queue->head == nullptr) return queue->head;
    if (wait.filter == MatchType) return queue->index->Oldest(TypeKey(wait.argument.type));
    if (wait.filter != MatchTypeAndId) return Scan(queue, wait);
    if (wait.argument.type != kTypeCres && wait.argument.type != kTypeBusy) return nullptr;
    return queue->index->Oldest(AnswerKey(wait.argument.type, wait.argument.id));
}

Packet* TakeNode(PacketQueue* queue, PacketNode* node, bool remove) {
    return remove ? RemoveNode(queue, node).release() : node->packet;
}

// Waiters search the queue before they sleep, so none has missed an older packet.
PacketWaiter* LongestWaitingTaker(const PacketQueue* queue, const Packet& packet) {
    for (PacketWaiter* waiter = queue->first_waiter; waiter != nullptr; waiter = waiter->later) {
        const bool ended = waiter->handed != nullptr || waiter->cancelled;
        if (!waiter->wait.remove || ended || !waiter->Accepts(packet)) continue;
        if (!IsAskedToStop(waiter->wait)) return waiter;  // otherwise it is left for others
    }
    return nullptr;
}

void WakeLookers(const PacketQueue* queue, const Packet& packet) {
    for (PacketWaiter* waiter = queue->first_waiter; waiter != nullptr; waiter = waiter->later) {
        if (waiter->wait.remove || !waiter->Accepts(packet)) continue;
        waiter->look_again = true;
        waiter->Wake();
    }
}

void LogOverflow(PacketQueue* queue, const char* function, const char* consequence) {
    if (std::exchange(queue->overflow_logged, true)) return;
    Log(kLogError, "[%s] Queue at 0x%p holds %llu bytes: %s", function, queue->lock.Address(),
        static_cast<unsigned long long>(queue->bytes), consequence);
}

// Never the newest, which no waiter has seen yet.
void DropOldest(PacketQueue* queue) {
    LogOverflow(queue, "AppendPacket", "dropping the oldest packets, which nobody has claimed");
    while (queue->bytes > GetPeerLimits().queue_bytes && queue->head != queue->tail)
        RemoveNode(queue, queue->head);
}

bool LinkNewest(PacketQueue* queue, PacketPtr& packet, std::uint32_t tag) {
    if (queue->index == nullptr) queue->index = PacketIndex::Create();
    PacketNode* node = queue->index == nullptr ? nullptr : queue->index->TakeNode();
    if (node == nullptr) return false;
    node->packet = packet.release();
    node->older = queue->tail;
    (queue->tail != nullptr ? queue->tail->newer : queue->head) = node;
    queue->tail = node;
    queue->index->Add(node, tag);
    ++queue->count;
    queue->bytes += CountedBytes(*node->packet);
    if (queue->drops_oldest && queue->bytes > GetPeerLimits().queue_bytes) DropOldest(queue);
    return true;
}

void ReleaseAll(PacketQueue* queue) {
    while (queue->head != nullptr) {
        PacketNode* node = queue->head;
        queue->head = node->newer;
        FreeMem(node->packet);
        FreeMem(node);
    }
    queue->tail = nullptr;
    queue->count = 0;
    queue->bytes = 0;
    queue->overflow_logged = false;
    PacketIndex::Destroy(queue->index);
    queue->index = nullptr;
}

// Queues nothing while `needed` (may be null) is false.
bool Append(PacketQueue* queue, PacketPtr& packet, std::uint32_t tag,
            const std::atomic<bool>* needed) {
    if (queue == nullptr || packet == nullptr || !queue->active) return false;
    OsCondition* wake_up = nullptr;
    {
        const LockGuard hold(queue->lock);
        if (!queue->active || (needed != nullptr && !*needed)) return false;
        PacketWaiter* taker = LongestWaitingTaker(queue, *packet);
        if (taker == nullptr) {
            if (!LinkNewest(queue, packet, tag)) return false;
            WakeLookers(queue, *queue->tail->packet);
            return true;
        }
        taker->handed = std::move(packet);
        wake_up = taker->WakeLater();
    }
    // After the lock: a taker woken inside would only wait for it.
    if (wake_up != nullptr) wake_up->WakeOne();
    return true;
}

}  // namespace

void InitializeQueue(PacketQueue* queue) {
    const LockGuard hold(queue->lock);
    // Waiters that FreeQueue has woken would otherwise find the queue active and sleep again.
    while (!queue->active && queue->sleepers > 0)
        queue->drained.Wait(queue->lock, -1);
    if (queue->active) return;
    // The lock exists as long as the record; the log shows it as created and deleted.
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION for queue at 0x%p", __func__,
        queue->lock.Address());
    queue->index = PacketIndex::Create();  // null: the first packet tries again
    queue->active = true;
}

void FreeQueue(PacketQueue* queue) {
    if (queue == nullptr || !queue->active) return;
    {
        const LockGuard hold(queue->lock);
        if (!queue->active) return;
        queue->active = false;
        ReleaseAll(queue);
        for (PacketWaiter* waiter = queue->first_waiter; waiter; waiter = waiter->later) {
            waiter->Wake();
        }
        while (queue->sleepers > 0)
            queue->drained.Wait(queue->lock, -1);
    }
    Log(kLogTrace, "[%s] Deleting CRITICAL_SECTION for queue at 0x%p", __func__,
        queue->lock.Address());
}

// Deliberate: only BUSY and CRES can match, and a BUSY never ends a wait for a CRES.
bool MatchTypeAndId(const Packet& packet, const PacketFilterArgument& argument) {
    std::uint32_t id = 0;
    return packet.type == argument.type && AnsweredRequest(packet, &id) && id == argument.id;
}

bool MatchType(const Packet& packet, const PacketFilterArgument& argument) {
    return packet.type == argument.type;
}

bool AppendPacket(PacketQueue* queue, PacketPtr& packet, std::uint32_t tag) {
    return Append(queue, packet, tag, nullptr);
}

bool EnqueueForAvailable(DeviceQueues* queues, PacketPtr& packet) {
    return Append(&queues->tx, packet, kNoTag, &queues->available);
}

bool HasRoomForAnswers(PacketQueue* queue) {
    const LockGuard hold(queue->lock);
    if (queue->bytes < GetPeerLimits().queue_bytes) return true;
    LogOverflow(queue, __func__, "no more answers to a peer that does not take them");
    return false;
}

Packet* FindPacket(PacketQueue* queue, const PacketWait& wait) {
    if (queue == nullptr || !queue->active) return nullptr;
    const LockGuard hold(queue->lock);
    if (!queue->active || IsAskedToStop(wait)) return nullptr;
    if (PacketNode* node = FindNode(queue, wait)) return TakeNode(queue, node, wait.remove);
    if (wait.timeout_ms == 0) return nullptr;
    const bool limited = wait.timeout_ms > 0;
    if (!limited) {
        Log(kLogTrace, "[%s] infinite wait for filter match", "QueueFindFilterInternal");
    }

    const std::uint64_t start = limited ? TickMs() : 0;
    bool has_slept = false;
    PacketWaiter waiter(queue, wait);
    for (;;) {
        if (waiter.handed != nullptr) return waiter.handed.release();
        if (!queue->active) return nullptr;
        if (std::exchange(waiter.look_again, false)) {
            if (PacketNode* node = FindNode(queue, wait)) return node->packet;
        }
        if (waiter.cancelled || IsAskedToStop(wait)) return nullptr;

        const std::int32_t slice_ms = GetLinkLimits().wait_slice_ms;
        std::int32_t sleep_ms = wait.flags == nullptr ? -1 : slice_ms;
        if (limited) {
            const std::uint64_t waited = has_slept ? TickMs() - start : 0;
            const auto limit = static_cast<std::uint64_t>(wait.timeout_ms);
            if (waited >= limit) return nullptr;
            sleep_ms = static_cast<std::int32_t>(
                std::min<std::uint64_t>(limit - waited, static_cast<std::uint64_t>(slice_ms)));
        }
        waiter.Sleep(sleep_ms);
        has_slept = true;
    }
}

Packet* QueueFindFilterInternal(PacketQueue* queue, std::int32_t timeout_ms, PacketFilter filter,
                                const PacketFilterArgument& argument, bool remove) {
    return FindPacket(queue, {.filter = filter,
                              .argument = argument,
                              .remove = remove,
                              .timeout_ms = timeout_ms,
                              .flags = nullptr});
}

PacketPtr TakePacket(PacketQueue* queue, std::int32_t timeout_ms) {
    return PacketPtr(QueueFindFilterInternal(queue, timeout_ms, nullptr, {}, true));
}

PacketPtr QueueRemoveByTag(PacketQueue* queue, std::uint32_t tag) {
    if (queue == nullptr || !queue->active) return nullptr;
    const LockGuard hold(queue->lock);
    if (queue->index == nullptr) return nullptr;
    PacketNode* node = queue->index->Oldest(TagKey(tag));
    return node == nullptr ? nullptr : RemoveNode(queue, node);
}

void WakeQueueWaiters(PacketQueue* queue) {
    if (queue == nullptr) return;
    const LockGuard hold(queue->lock);
    for (PacketWaiter* waiter = queue->first_waiter; waiter != nullptr; waiter = waiter->later) {
        waiter->cancelled = waiter->wait.flags == nullptr;
        waiter->Wake();
    }
}

}  // namespace tarvik
