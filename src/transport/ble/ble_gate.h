#pragma once

#include <cstdint>

#include "platform/lock.h"
#include "platform/tick.h"

namespace tarvik {

// Admits calls until it is closed.
class BleGate {
public:
    // True: Leave must follow.
    bool Enter() {
        const LockGuard hold(lock_);
        if (!closed_) ++inside_;
        return !closed_;
    }
    void Leave() {
        const LockGuard hold(lock_);
        if (--inside_ == 0) empty_.WakeAll();
    }
    // Returns when the calls inside have left, or when the time is over; -1 is no limit. Must not
    // be called from inside.
    void Close(std::int32_t limit_ms = -1) {
        const std::uint64_t begin_ms = TickMs();
        const LockGuard hold(lock_);
        closed_ = true;
        for (std::int32_t left = limit_ms; inside_ > 0 && left != 0;
             left = Left(limit_ms, begin_ms))
            empty_.Wait(lock_, left);
    }

private:
    static std::int32_t Left(std::int32_t limit_ms, std::uint64_t begin_ms) {
        if (limit_ms < 0) return limit_ms;
        const std::uint64_t passed_ms = TickMs() - begin_ms;
        const auto limit = static_cast<std::uint64_t>(limit_ms);
        return passed_ms < limit ? static_cast<std::int32_t>(limit - passed_ms) : 0;
    }

    OsLock lock_;
    OsCondition empty_;
    bool closed_ = false;  // guarded by lock_
    int inside_ = 0;       // guarded by lock_
};

}  // namespace tarvik
