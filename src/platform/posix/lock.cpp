#include "platform/lock.h"

#include <new>

#include "platform/posix/monitor.h"

namespace tarvik {

namespace {

constexpr int kLooksBeforeSleep = 100;  // a few microseconds at most

pthread_mutex_t* Mutex(std::byte* storage) {
    static_assert(sizeof(pthread_mutex_t) <= 64);
    return std::launder(reinterpret_cast<pthread_mutex_t*>(storage));
}

pthread_cond_t* Condition(std::byte* storage) {
    static_assert(sizeof(pthread_cond_t) <= 64);
    return std::launder(reinterpret_cast<pthread_cond_t*>(storage));
}

}  // namespace

OsLock::OsLock() {
    auto* mutex = ::new (static_cast<void*>(storage_)) pthread_mutex_t;
    pthread_mutexattr_t attributes;
    ::pthread_mutexattr_init(&attributes);
    ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    ::pthread_mutex_init(mutex, &attributes);
    ::pthread_mutexattr_destroy(&attributes);
}

OsLock::~OsLock() { ::pthread_mutex_destroy(Mutex(storage_)); }

// A holder on another core usually leaves within a microsecond, while sleeping and waking costs
// both sides many. So spin briefly first, like a critical section with a spin count.
void OsLock::Enter() {
    pthread_mutex_t* mutex = Mutex(storage_);
    for (int look = 0; look < kLooksBeforeSleep; ++look) {
        if (::pthread_mutex_trylock(mutex) == 0) return;
        __builtin_ia32_pause();
    }
    ::pthread_mutex_lock(mutex);
}

void OsLock::Leave() { ::pthread_mutex_unlock(Mutex(storage_)); }

OsCondition::OsCondition() {
    InitMonotonicCondition(::new (static_cast<void*>(storage_)) pthread_cond_t);
}

OsCondition::~OsCondition() { ::pthread_cond_destroy(Condition(storage_)); }

bool OsCondition::Wait(OsLock& lock, std::int32_t timeout_ms) {
    return Deadline(timeout_ms).Sleep(Condition(storage_), Mutex(lock.storage_));
}

void OsCondition::WakeOne() { ::pthread_cond_signal(Condition(storage_)); }

void OsCondition::WakeAll() { ::pthread_cond_broadcast(Condition(storage_)); }

}  // namespace tarvik
