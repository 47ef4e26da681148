#include "platform/semaphore.h"

#include <errno.h>

#include <new>

#include "platform/posix/monitor.h"

namespace tarvik {

struct OsSemaphore {
    Monitor monitor;
    std::int32_t count;  // guarded by monitor
    std::int32_t maximum;
};

OsSemaphore* OsSemaphoreCreate(std::int32_t initial, std::int32_t maximum) {
    if (initial < 0 || maximum <= 0 || initial > maximum) return nullptr;
    auto* semaphore = new (std::nothrow) OsSemaphore{};
    if (semaphore == nullptr) return nullptr;
    semaphore->count = initial;
    semaphore->maximum = maximum;
    return semaphore;
}

// kTaken: there is one to take.
static SemaphoreWait AwaitCount(const OsSemaphore* semaphore, MonitorGuard* guard,
                                std::int32_t timeout_ms) {
    const Deadline deadline(timeout_ms);
    while (semaphore->count == 0) {
        const int error = guard->TrySleep(deadline);
        if (error == 0 || semaphore->count > 0) continue;
        return error == ETIMEDOUT ? SemaphoreWait::kTimeout : SemaphoreWait::kFailed;
    }
    return SemaphoreWait::kTaken;
}

SemaphoreWait OsSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms) {
    if (semaphore == nullptr) return SemaphoreWait::kFailed;
    MonitorGuard guard(semaphore->monitor);
    if (semaphore->count == 0) {
        if (timeout_ms == 0) return SemaphoreWait::kTimeout;
        const SemaphoreWait outcome = AwaitCount(semaphore, &guard, timeout_ms);
        if (outcome != SemaphoreWait::kTaken) return outcome;
    }
    --semaphore->count;
    return SemaphoreWait::kTaken;
}

bool OsSemaphoreRelease(OsSemaphore* semaphore) {
    {
        const MonitorGuard guard(semaphore->monitor);
        if (semaphore->count == semaphore->maximum) return false;
        ++semaphore->count;
    }
    // A waiter that is woken inside the monitor would only wait for it.
    semaphore->monitor.WakeOne();
    return true;
}

void OsSemaphoreClose(OsSemaphore* semaphore) { delete semaphore; }

}  // namespace tarvik
