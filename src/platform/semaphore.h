#pragma once

#include <cstdint>

namespace tarvik {

struct OsSemaphore;

OsSemaphore* OsSemaphoreCreate(std::int32_t initial, std::int32_t maximum);  // null: refused
enum class SemaphoreWait : std::uint8_t { kTaken, kTimeout, kFailed };
// kFailed: the system refused the wait, or there is no semaphore; to try again is no use.
SemaphoreWait OsSemaphoreWait(OsSemaphore* semaphore, std::int32_t timeout_ms);  // -1: no limit
bool OsSemaphoreRelease(OsSemaphore* semaphore);  // false: it already stood at its maximum
// Once no thread is inside any of these, a Release that has let its waiter go included.
void OsSemaphoreClose(OsSemaphore* semaphore);

}  // namespace tarvik
