// Locks of the system: those of this compiler's library are never given back with their owner, and
// the double is there to count what others give back.

#pragma once

#include <windows.h>

namespace brennix {

class Lock {
public:
    Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    void lock() { ::AcquireSRWLockExclusive(&lock_); }
    void unlock() { ::ReleaseSRWLockExclusive(&lock_); }

private:
    friend class Condition;
    SRWLOCK lock_ = SRWLOCK_INIT;
};

class Condition {
public:
    Condition() = default;
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;
    // The caller has locked `lock`. May wake early.
    void Wait(Lock& lock, DWORD limit_ms) {
        ::SleepConditionVariableSRW(&condition_, &lock.lock_, limit_ms, 0);
    }
    void WakeAll() { ::WakeAllConditionVariable(&condition_); }

private:
    CONDITION_VARIABLE condition_ = CONDITION_VARIABLE_INIT;
};

}  // namespace brennix
