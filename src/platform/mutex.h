#pragma once

#include <cstdint>

namespace tarvik {

// A kernel mutex: recursive, owned by a thread, may stay owned for as long as its owner lives.
struct OsMutex;

enum class MutexWait : std::uint8_t {
    kAcquired,
    kAbandoned,  // acquired, because the thread that owned it has ended
    kTimeout,    // not acquired
};

OsMutex* OsMutexCreate();  // null: the system refused
// timeout_ms -1 waits without limit, 0 only tries.
MutexWait OsMutexLock(OsMutex* mutex, std::int32_t timeout_ms);
void OsMutexUnlock(OsMutex* mutex);  // owner only, once per acquisition
void OsMutexClose(OsMutex* mutex);   // nobody may be waiting; it may still be owned
void* OsMutexHandle(const OsMutex* mutex);

}  // namespace tarvik
