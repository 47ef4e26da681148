#include "unit/faults/semaphore_fault.h"

#include <atomic>

// The platform's source, with its OsSemaphoreWait under another name. This object then defines all
// that the source does, so the linker takes nothing of it from the library.
#define OsSemaphoreWait SystemSemaphoreWait
#ifdef _WIN32
#include "platform/win32/semaphore.cpp"
#else
#include "platform/posix/semaphore.cpp"
#endif
#undef OsSemaphoreWait

namespace tarvik {
namespace {

std::atomic<bool> failing{false};

}  // namespace

SemaphoreWait OsSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms) {
    return failing ? SemaphoreWait::kFailed : SystemSemaphoreWait(semaphore, timeout_ms);
}

namespace test {

SemaphoreFault::SemaphoreFault() { failing = true; }

SemaphoreFault::~SemaphoreFault() { failing = false; }

}  // namespace test
}  // namespace tarvik
