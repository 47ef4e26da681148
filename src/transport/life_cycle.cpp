#include "transport/life_cycle.h"

#include "support/log.h"

namespace tarvik {

bool CheckInitialized(bool initialized, const char* who, const char* consequence) {
    if (!initialized) Log(kLogTrace, "[%s] Not initialized%s", who, consequence);
    return initialized;
}

OsThread* StartThreadWithFlag(std::atomic<bool>* running, OsThreadEntry entry,
                              const char* description, void* argument) {
    *running = true;
    OsThread* thread = OsThreadStart(entry, argument, description);
    if (thread == nullptr) *running = false;
    return thread;
}

bool AwaitAndCloseThread(OsThread* thread, std::int32_t timeout_ms, const char* function,
                         const char* name) {
    Log(kLogTrace, "[%s] Wait for %s", function, name);
    const bool ended = OsThreadJoin(thread, timeout_ms);
    LogAndCloseThread(thread, function, name);
    return ended;
}

void LogAndCloseThread(OsThread* thread, const char* function, const char* name) {
    Log(kLogTrace, "[%s] Closing Thread handle 0x%p (%s)", function, OsThreadHandle(thread), name);
    OsThreadClose(thread);
}

}  // namespace tarvik
