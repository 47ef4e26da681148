#include "platform/mutex.h"

#include <time.h>

#include <atomic>
#include <new>

#include "platform/posix/monitor.h"

// The mutexes that a thread holds form a list, kept under a key with a destructor: a thread that
// ends while it owns a mutex leaves it abandoned, as a kernel mutex of the other system would be.
// (thread_local objects with destructors would keep the library from being unloaded.)
namespace tarvik {

// What a thread holds.
struct HeldMutexes {
    OsMutex* first;  // guarded by held_lists
    bool watched;    // AbandonAll will run; only this thread uses it
};

struct OsMutex {
    Monitor monitor;
    HeldMutexes* owner = nullptr;  // the fields below: guarded by monitor
    std::uint32_t depth = 0;
    bool abandoned = false;
    OsMutex* previous = nullptr;  // the links: guarded by held_lists
    OsMutex* next = nullptr;
    HeldMutexes* listed_by = nullptr;
};

namespace {

// Guards the lists of all threads: a mutex may be closed by a thread that does not own it.
// Comes before a mutex's monitor.
pthread_mutex_t held_lists = PTHREAD_MUTEX_INITIALIZER;
pthread_once_t key_once = PTHREAD_ONCE_INIT;
pthread_key_t held_key;
std::atomic<bool> key_alive{false};

thread_local HeldMutexes held_by_this_thread{};

class HeldListsGuard {
public:
    HeldListsGuard() { ::pthread_mutex_lock(&held_lists); }
    ~HeldListsGuard() { ::pthread_mutex_unlock(&held_lists); }
    HeldListsGuard(const HeldListsGuard&) = delete;
    HeldListsGuard& operator=(const HeldListsGuard&) = delete;
};

void Link(OsMutex* mutex, HeldMutexes* held) {
    const HeldListsGuard guard;
    mutex->listed_by = held;
    mutex->previous = nullptr;
    mutex->next = held->first;
    if (held->first != nullptr) held->first->previous = mutex;
    held->first = mutex;
}

// held_lists is held. Does nothing for a mutex that is in no list.
void UnlinkLocked(OsMutex* mutex) {
    if (mutex->listed_by == nullptr) return;
    if (mutex->previous != nullptr) {
        mutex->previous->next = mutex->next;
    } else {
        mutex->listed_by->first = mutex->next;
    }
    if (mutex->next != nullptr) mutex->next->previous = mutex->previous;
    mutex->listed_by = nullptr;
    mutex->previous = mutex->next = nullptr;
}

void Abandon(OsMutex* mutex) {
    const MonitorGuard guard(mutex->monitor);
    mutex->owner = nullptr;
    mutex->depth = 0;
    mutex->abandoned = true;
    mutex->monitor.WakeOne();
}

// The thread ends. The lists stay guarded throughout, so that no mutex can be closed between
// leaving the list and being abandoned.
void AbandonAll(void* value) {
    auto* held = static_cast<HeldMutexes*>(value);
    held->watched = false;
    const HeldListsGuard guard;
    while (OsMutex* mutex = held->first) {
        UnlinkLocked(mutex);
        Abandon(mutex);
    }
}

void CreateKey() {
    if (::pthread_key_create(&held_key, &AbandonAll) == 0) key_alive.store(true);
}

// At unload: the system must not call AbandonAll any more.
__attribute__((destructor)) void DeleteKey() {
    if (key_alive.exchange(false)) ::pthread_key_delete(held_key);
}

// Null: the system cannot watch for the end of this thread, for lack of memory, or because the
// library is being unloaded.
HeldMutexes* HeldByThisThread() {
    HeldMutexes* held = &held_by_this_thread;
    if (held->watched) return held;
    if (!key_alive.load(std::memory_order_relaxed)) return nullptr;
    if (::pthread_setspecific(held_key, held) != 0) return nullptr;
    held->watched = true;
    return held;
}

// As HeldByThisThread; tries again until memory is there or the time has run out, and never returns
// early without it: the caller would try again at once.
HeldMutexes* AwaitHeldByThisThread(std::int32_t timeout_ms) {
    constexpr timespec kPause = {0, 1'000'000};
    for (std::int32_t waited_ms = 0;; ++waited_ms) {
        HeldMutexes* held = HeldByThisThread();
        if (held != nullptr || (timeout_ms >= 0 && waited_ms >= timeout_ms)) return held;
        ::nanosleep(&kPause, nullptr);
    }
}

// Waits until the mutex is free. The monitor is held.
MutexWait Acquire(OsMutex* mutex, HeldMutexes* self, MonitorGuard& guard, std::int32_t timeout_ms) {
    const Deadline deadline(timeout_ms);
    while (mutex->depth != 0) {
        if (timeout_ms == 0) return MutexWait::kTimeout;
        if (!guard.Sleep(deadline) && mutex->depth != 0) return MutexWait::kTimeout;
    }
    mutex->owner = self;
    mutex->depth = 1;
    const bool abandoned = mutex->abandoned;
    mutex->abandoned = false;
    return abandoned ? MutexWait::kAbandoned : MutexWait::kAcquired;
}

}  // namespace

OsMutex* OsMutexCreate() {
    ::pthread_once(&key_once, &CreateKey);
    if (!key_alive.load(std::memory_order_relaxed)) return nullptr;
    return new (std::nothrow) OsMutex;
}

MutexWait OsMutexLock(OsMutex* mutex, std::int32_t timeout_ms) {
    HeldMutexes* self = AwaitHeldByThisThread(timeout_ms);
    if (self == nullptr) return MutexWait::kTimeout;
    MutexWait outcome = MutexWait::kAcquired;
    {
        MonitorGuard guard(mutex->monitor);
        if (mutex->owner == self) {
            ++mutex->depth;
            return MutexWait::kAcquired;
        }
        outcome = Acquire(mutex, self, guard, timeout_ms);
    }
    if (outcome != MutexWait::kTimeout) Link(mutex, self);
    return outcome;
}

void OsMutexUnlock(OsMutex* mutex) {
    {
        const MonitorGuard guard(mutex->monitor);
        if (mutex->owner != &held_by_this_thread) return;
        if (mutex->depth > 1) {
            --mutex->depth;
            return;
        }
    }
    // Only the owner gets here, so the mutex cannot change hands before it is out of the list.
    {
        const HeldListsGuard guard;
        UnlinkLocked(mutex);
    }
    const MonitorGuard guard(mutex->monitor);
    mutex->owner = nullptr;
    mutex->depth = 0;
    mutex->monitor.WakeOne();
}

void OsMutexClose(OsMutex* mutex) {
    if (mutex == nullptr) return;
    {
        const HeldListsGuard guard;
        UnlinkLocked(mutex);
    }
    delete mutex;
}

void* OsMutexHandle(const OsMutex* mutex) { return const_cast<OsMutex*>(mutex); }

}  // namespace tarvik
