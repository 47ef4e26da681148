#include "api/item_queue.h"

#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

// The lock is held and the queue is not empty.
ItemNode* UnlinkHead(ItemQueue* queue) {
    ItemNode* node = queue->head;
    queue->head = node->next;
    if (queue->head == nullptr) queue->tail = nullptr;
    return node;
}

void* Unwrap(ItemNode* node) {
    if (node == nullptr) return nullptr;
    void* object = node->object;
    FreeMem(node);
    return object;
}

}  // namespace

void InitializeQueue(ItemQueue* queue) {
    const LockGuard hold(queue->lock);
    queue->head = nullptr;
    queue->tail = nullptr;
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION for queue at 0x%p", "InitializeQueue",
        queue->lock.Address());
    queue->initialised.store(true);
}

void DiscardQueue(ItemQueue* queue, void (*release)(void* object)) {
    ItemNode* node = nullptr;
    {
        const LockGuard hold(queue->lock);
        queue->initialised.store(false);
        node = queue->head;
        queue->head = nullptr;
        queue->tail = nullptr;
    }
    while (node != nullptr) {
        ItemNode* next = node->next;
        release(Unwrap(node));
        node = next;
    }
    queue->changed.WakeAll();
}

void FreeQueue(ItemQueue* queue, void (*release)(void* object)) {
    if (!queue->initialised.load()) return;
    DiscardQueue(queue, release);
    Log(kLogTrace, "[%s] Deleting CRITICAL_SECTION for queue at 0x%p", "FreeQueue",
        queue->lock.Address());
}

bool AppendItem(ItemQueue* queue, void* object, std::uint32_t key) {
    auto node = AllocateRecord<ItemNode>();
    if (node == nullptr) return false;
    node->object = object;
    node->key = key;
    {
        const LockGuard hold(queue->lock);
        if (!queue->initialised.load()) return false;
        ItemNode* added = node.release();
        (queue->tail == nullptr ? queue->head : queue->tail->next) = added;
        queue->tail = added;
    }
    queue->changed.WakeAll();
    return true;
}

void* TakeItem(ItemQueue* queue) {
    ItemNode* node = nullptr;
    {
        const LockGuard hold(queue->lock);
        if (!queue->initialised.load() || queue->head == nullptr) return nullptr;
        node = UnlinkHead(queue);
    }
    return Unwrap(node);
}

void* FirstItem(ItemQueue* queue) {
    const LockGuard hold(queue->lock);
    return queue->head == nullptr ? nullptr : queue->head->object;
}

void* WaitForItem(ItemQueue* queue, std::uint32_t timeout_ms, const std::atomic<bool>& running) {
    const std::uint64_t deadline = TickMs() + timeout_ms;
    ItemNode* node = nullptr;
    {
        const LockGuard hold(queue->lock);
        for (;;) {
            if (!queue->initialised.load() || !running.load()) return nullptr;
            if (queue->head != nullptr) break;
            const std::uint64_t now = TickMs();
            if (now >= deadline) return nullptr;
            queue->changed.Wait(queue->lock, static_cast<std::int32_t>(deadline - now));
        }
        node = UnlinkHead(queue);
    }
    return Unwrap(node);
}

void* RemoveItem(ItemQueue* queue, std::uint32_t key) {
    ItemNode* found = nullptr;
    {
        const LockGuard hold(queue->lock);
        ItemNode* previous = nullptr;
        for (found = queue->head; found != nullptr && found->key != key; found = found->next) {
            previous = found;
        }
        if (found == nullptr) return nullptr;
        (previous == nullptr ? queue->head : previous->next) = found->next;
        if (queue->tail == found) queue->tail = previous;
    }
    return Unwrap(found);
}

void WakeItemQueue(ItemQueue* queue) {
    // Inside the lock: a waiter that has looked at its flag is asleep by now.
    const LockGuard hold(queue->lock);
    queue->changed.WakeAll();
}

}  // namespace tarvik
