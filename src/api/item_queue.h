#pragma once

#include <atomic>
#include <cstdint>

#include "platform/lock.h"

namespace tarvik {

struct ItemNode;

// A first-in first-out queue of the API's own objects: event items, ComPrimitives. Each carries a
// key by which it can be taken out of turn.
struct ItemQueue {
    std::atomic<bool> initialised{false};
    OsLock lock;          // guards everything below
    OsCondition changed;  // woken on every append and on WakeItemQueue
    ItemNode* head = nullptr;
    ItemNode* tail = nullptr;
};

struct ItemNode {
    void* object;
    ItemNode* next;
    std::uint32_t key;
};

inline constexpr std::uint32_t kNoKey = 0xFFFFFFFF;

void InitializeQueue(ItemQueue* queue);
// Marks the queue uninitialised, hands every object left to `release`, wakes the waiters. The lock
// stays usable: a late caller finds the queue uninitialised.
void FreeQueue(ItemQueue* queue, void (*release)(void* object));

// The same without a word: for a queue that goes with the record around it.
void DiscardQueue(ItemQueue* queue, void (*release)(void* object));

// False: the queue is not initialised or memory is out; the object is still the caller's.
bool AppendItem(ItemQueue* queue, void* object, std::uint32_t key);
// The oldest object, or null; does not wait.
void* TakeItem(ItemQueue* queue);
void* FirstItem(ItemQueue* queue);  // likewise, and leaves it in the queue
// The oldest object, waiting at most timeout_ms for one while `running` is set. Null: none came.
// Whoever clears `running` calls WakeItemQueue afterwards.
void* WaitForItem(ItemQueue* queue, std::uint32_t timeout_ms, const std::atomic<bool>& running);
void* RemoveItem(ItemQueue* queue, std::uint32_t key);  // null: no object has this key
void WakeItemQueue(ItemQueue* queue);

// Calls `visit` for the object with this key while it cannot leave the queue; false: no such key.
template <typename Visit>
bool VisitItem(ItemQueue& queue, std::uint32_t key, Visit visit) {
    const LockGuard hold(queue.lock);
    for (ItemNode* node = queue.head; node != nullptr; node = node->next) {
        if (node->key != key) continue;
        visit(node->object);
        return true;
    }
    return false;
}

// Calls `visit` for every object while none can leave the queue.
template <typename Visit>
void VisitAllItems(ItemQueue& queue, Visit visit) {
    const LockGuard hold(queue.lock);
    for (ItemNode* node = queue.head; node != nullptr; node = node->next)
        visit(node->object);
}

}  // namespace tarvik
