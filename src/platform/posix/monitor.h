#pragma once

#include <pthread.h>
#include <time.h>

#include <cstdint>

namespace tarvik {

// A point on the monotonic clock, made once from a time-out; -1 is never reached.
class Deadline {
public:
    explicit Deadline(std::int32_t timeout_ms) : endless_(timeout_ms < 0) {
        ::clock_gettime(CLOCK_MONOTONIC, &at_);
        if (endless_) return;
        at_.tv_sec += timeout_ms / 1000;
        at_.tv_nsec += (timeout_ms % 1000) * 1'000'000L;
        if (at_.tv_nsec >= 1'000'000'000L) {
            at_.tv_nsec -= 1'000'000'000L;
            ++at_.tv_sec;
        }
    }
    // Sleeps on `changed` until woken or until the deadline. 0: woken; ETIMEDOUT: the time ran out;
    // another error: it could not sleep.
    int TrySleep(pthread_cond_t* changed, pthread_mutex_t* held) const {
        if (endless_) return ::pthread_cond_wait(changed, held);
        return ::pthread_cond_timedwait(changed, held, &at_);
    }
    bool HasPassed() const {
        timespec now;
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        return !endless_ && (now.tv_sec > at_.tv_sec ||
                             (now.tv_sec == at_.tv_sec && now.tv_nsec >= at_.tv_nsec));
    }
    // False: the time ran out.
    bool Sleep(pthread_cond_t* changed, pthread_mutex_t* held) const {
        return TrySleep(changed, held) == 0;
    }

private:
    timespec at_{};
    bool endless_;
};

inline void InitMonotonicCondition(pthread_cond_t* condition) {
    pthread_condattr_t attributes;
    ::pthread_condattr_init(&attributes);
    ::pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    ::pthread_cond_init(condition, &attributes);
    ::pthread_condattr_destroy(&attributes);
}

// A plain mutex with one condition, on which this folder's services are built.
class Monitor {
public:
    Monitor() { InitMonotonicCondition(&changed_); }
    ~Monitor() {
        ::pthread_cond_destroy(&changed_);
        ::pthread_mutex_destroy(&mutex_);
    }
    Monitor(const Monitor&) = delete;
    Monitor& operator=(const Monitor&) = delete;

    void WakeOne() { ::pthread_cond_signal(&changed_); }
    void WakeAll() { ::pthread_cond_broadcast(&changed_); }

private:
    friend class MonitorGuard;
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed_;
};

// Also leaves the monitor when the sleeping thread is cancelled.
class MonitorGuard {
public:
    explicit MonitorGuard(Monitor& monitor) : monitor_(monitor) {
        ::pthread_mutex_lock(&monitor_.mutex_);
    }
    ~MonitorGuard() { ::pthread_mutex_unlock(&monitor_.mutex_); }
    MonitorGuard(const MonitorGuard&) = delete;
    MonitorGuard& operator=(const MonitorGuard&) = delete;

    // False: the time ran out. True may be spurious.
    bool Sleep(const Deadline& deadline) { return TrySleep(deadline) == 0; }
    // As Sleep, with the result of Deadline::TrySleep.
    int TrySleep(const Deadline& deadline) {
        return deadline.TrySleep(&monitor_.changed_, &monitor_.mutex_);
    }

private:
    Monitor& monitor_;
};

}  // namespace tarvik
