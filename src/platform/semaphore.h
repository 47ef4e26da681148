#pragma once

#include <cstdint>

namespace tarvik {

struct OsSemaphore;

OsSemaphore* OsSemaphoreCreate(std::int32_t initial, std::int32_t maximum);  // null: refused
enum class SemaphoreWait : std::uint8_t { kTaken, kTimeout, kFailed };
// kFailed: the system refused the wait, or there is no semaphore; trying again is no use.
SemaphoreWait OsSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms);  // -1: no limit
bool OsSemaphoreRelease(OsSemaphore* semaphore);  // false: it is at its maximum
// Only when no thread is inside these functions, not even a Release whose waiter has returned.
void OsSemaphoreClose(OsSemaphore* semaphore);

}  // namespace tarvik
