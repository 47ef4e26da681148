#include "platform/semaphore.h"

#include <errno.h>

#include <new>
#include <optional>

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

SemaphoreWait OsSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms) {
    if (semaphore == nullptr) return SemaphoreWait::kFailed;
    MonitorGuard guard(semaphore->monitor);
    std::optional<Deadline> deadline;  // a free semaphore costs no look at the clock
    while (semaphore->count == 0) {
        if (timeout_ms == 0) return SemaphoreWait::kTimeout;
        if (!deadline) deadline.emplace(timeout_ms);
        const int error = guard.TrySleep(*deadline);
        if (error == 0 || semaphore->count > 0) continue;
        return error == ETIMEDOUT ? SemaphoreWait::kTimeout : SemaphoreWait::kFailed;
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
