#pragma once

#include <cstddef>
#include <cstdint>

namespace tarvik {

class OsCondition;

// A critical section: recursive, owned by a thread, never shared between processes.
// Leave it only on the thread that entered it, once per Enter.
class OsLock {
public:
    OsLock();
    ~OsLock();
    OsLock(const OsLock&) = delete;
    OsLock& operator=(const OsLock&) = delete;

    void Enter();
    void Leave();
    // The system's own object, for log lines that print an address.
    void* Address() { return storage_; }

private:
    friend class OsCondition;
    alignas(16) std::byte storage_[64];
};

// Wakes threads that sleep inside one OsLock. Wake-ups may be spurious: always look again.
class OsCondition {
public:
    OsCondition();
    ~OsCondition();
    OsCondition(const OsCondition&) = delete;
    OsCondition& operator=(const OsCondition&) = delete;

    // The caller has entered `lock` exactly once; it is left while sleeping and held again on
    // return. timeout_ms -1 sleeps without limit. False: the time ran out.
    bool Wait(OsLock& lock, std::int32_t timeout_ms);
    void WakeOne();
    void WakeAll();

private:
    alignas(16) std::byte storage_[64];
};

class LockGuard {
public:
    explicit LockGuard(OsLock& lock) : lock_(lock) { lock_.Enter(); }
    ~LockGuard() { lock_.Leave(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    OsLock& lock_;
};

}  // namespace tarvik
