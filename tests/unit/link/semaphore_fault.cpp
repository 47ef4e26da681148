// The linker's --wrap leads every call of OsSemaphoreWait here first.
#include "unit/link/semaphore_fault.h"

#include <atomic>
#include <cstdint>

#include "platform/semaphore.h"

namespace tarvik {

SemaphoreWait RealSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms) __asm__(
    "__real__ZN6tarvik15OsSemaphoreWaitEPNS_11OsSemaphoreEi");
SemaphoreWait WrappedSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms) __asm__(
    "__wrap__ZN6tarvik15OsSemaphoreWaitEPNS_11OsSemaphoreEi");

static std::atomic<bool> failing{false};

SemaphoreWait WrappedSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms) {
    return failing ? SemaphoreWait::kFailed : RealSemaphoreWait(semaphore, timeout_ms);
}

namespace test {

SemaphoreFault::SemaphoreFault() { failing = true; }

SemaphoreFault::~SemaphoreFault() { failing = false; }

}  // namespace test
}  // namespace tarvik
