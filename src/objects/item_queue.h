#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "platform/lock.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {

inline constexpr std::uint32_t kNoKey = 0xFFFFFFFF;

// A first-in first-out queue of the API's own objects: event items, ComPrimitives. `Owner` is a
// movable handle, empty or the owner of an object that it releases: a Ref, an EventPtr. Each object
// has a key by which it can be removed out of turn. Safe on any thread; no object is released while
// the lock is held.
template <typename Owner>
class ItemQueue {
public:
    ItemQueue() = default;
    ~ItemQueue() { Discard(); }
    ItemQueue(const ItemQueue&) = delete;
    ItemQueue& operator=(const ItemQueue&) = delete;

    void Initialize() {
        const LockGuard hold(lock_);
        head_ = nullptr;
        tail_ = nullptr;
        Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION for queue at 0x%p", "InitializeQueue",
            lock_.Address());
        initialised_.store(true);
    }

    // Ends the queue: releases what is left and wakes the waiters. The lock stays usable: a late
    // caller finds the queue uninitialised.
    void Free() {
        if (!initialised_.load()) return;
        Discard();
        Log(kLogTrace, "[%s] Deleting CRITICAL_SECTION for queue at 0x%p", "FreeQueue",
            lock_.Address());
    }

    // As Free, but logs nothing: for a queue that is released together with its record.
    void Discard() {
        Node* node = nullptr;
        {
            const LockGuard hold(lock_);
            initialised_.store(false);
            node = std::exchange(head_, nullptr);
            tail_ = nullptr;
        }
        while (node != nullptr) {
            Node* next = node->next;
            Unwrap(node);
            node = next;
        }
        changed_.WakeAll();
    }

    // False: the queue is not initialised or memory is out; the object is still the caller's.
    bool Append(Owner&& object, std::uint32_t key) {
        Node* node = NewTracked<Node>();
        if (node == nullptr) return false;
        node->key = key;
        {
            const LockGuard hold(lock_);
            if (initialised_.load()) {
                node->object = std::move(object);
                (tail_ == nullptr ? head_ : tail_->next) = node;
                tail_ = std::exchange(node, nullptr);
            }
        }
        if (node != nullptr) {
            DeleteTracked(node);
            return false;
        }
        changed_.WakeAll();
        return true;
    }

    // The oldest object, or an empty handle. Does not wait.
    Owner Take() {
        Node* node = nullptr;
        {
            const LockGuard hold(lock_);
            if (!initialised_.load() || head_ == nullptr) return Owner();
            node = UnlinkHead();
        }
        return Unwrap(node);
    }

    // Another handle to the oldest object, which stays in the queue.
    Owner First() {
        const LockGuard hold(lock_);
        return head_ == nullptr ? Owner() : head_->object;
    }

    // The oldest object. Waits at most timeout_ms for one, and only while `running` is set: whoever
    // clears it calls Wake afterwards.
    Owner WaitForNext(std::uint32_t timeout_ms, const std::atomic<bool>& running) {
        const std::uint64_t deadline = TickMs() + timeout_ms;
        Node* node = nullptr;
        {
            const LockGuard hold(lock_);
            for (;;) {
                if (!initialised_.load() || !running.load()) return Owner();
                if (head_ != nullptr) break;
                const std::uint64_t now = TickMs();
                if (now >= deadline) return Owner();
                changed_.Wait(lock_, static_cast<std::int32_t>(deadline - now));
            }
            node = UnlinkHead();
        }
        return Unwrap(node);
    }

    // Empty: no object has this key.
    Owner Remove(std::uint32_t key) {
        Node* found = nullptr;
        {
            const LockGuard hold(lock_);
            Node* previous = nullptr;
            for (found = head_; found != nullptr && found->key != key; found = found->next) {
                previous = found;
            }
            if (found == nullptr) return Owner();
            (previous == nullptr ? head_ : previous->next) = found->next;
            if (tail_ == found) tail_ = previous;
        }
        return Unwrap(found);
    }

    void Wake() {
        // Under the lock: a waiter that has checked its flag is asleep by now.
        const LockGuard hold(lock_);
        changed_.WakeAll();
    }

    // Calls `visit` for the object with this key while it cannot leave the queue. False: no object
    // has this key.
    template <typename Visitor>
    bool Visit(std::uint32_t key, Visitor visit) {
        const LockGuard hold(lock_);
        for (Node* node = head_; node != nullptr; node = node->next) {
            if (node->key != key) continue;
            visit(*node->object);
            return true;
        }
        return false;
    }

    // Calls `visit` for every object while none can leave the queue.
    template <typename Visitor>
    void VisitAll(Visitor visit) {
        const LockGuard hold(lock_);
        for (Node* node = head_; node != nullptr; node = node->next)
            visit(*node->object);
    }

private:
    struct Node {
        Owner object{};
        Node* next = nullptr;
        std::uint32_t key = kNoKey;
    };

    // The lock is held and the queue is not empty.
    Node* UnlinkHead() {
        Node* node = head_;
        head_ = node->next;
        if (head_ == nullptr) tail_ = nullptr;
        return node;
    }

    static Owner Unwrap(Node* node) {
        Owner object = std::move(node->object);
        DeleteTracked(node);
        return object;
    }

    std::atomic<bool> initialised_{false};
    OsLock lock_;          // guards the list
    OsCondition changed_;  // woken on every append and by Wake
    Node* head_ = nullptr;
    Node* tail_ = nullptr;
};

}  // namespace tarvik
