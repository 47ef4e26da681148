// Locks of the system. Those of the compiler's library create handles that their owner does not
// release, and programs that use the stand-in count their handles.

#pragma once

#include <windows.h>

#include <mutex>
#include <optional>
#include <utility>

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

// A lock that its thread may take again.
class RecursiveLock {
public:
    RecursiveLock() { ::InitializeCriticalSection(&lock_); }
    ~RecursiveLock() { ::DeleteCriticalSection(&lock_); }
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;
    void lock() { ::EnterCriticalSection(&lock_); }
    void unlock() { ::LeaveCriticalSection(&lock_); }

private:
    CRITICAL_SECTION lock_;
};

// A value that one thread waits for and another sets, once. Both own it, since either may finish
// first.
template <typename Value>
class Awaited {
public:
    void Set(Value value) {
        const std::lock_guard hold(lock_);
        value_ = std::move(value);
        set_.WakeAll();
    }
    Value Wait() {
        const std::lock_guard hold(lock_);
        while (!value_)
            set_.Wait(lock_, INFINITE);
        return *value_;
    }

private:
    Lock lock_;
    Condition set_;
    std::optional<Value> value_;  // guarded by lock_
};

}  // namespace brennix
