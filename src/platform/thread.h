#pragma once

#include <cstdint>

namespace tarvik {

struct OsThread;

using OsThreadEntry = void (*)(void* argument);

// Starts a thread and gives it a description (shown by debuggers; cut to what the system takes).
// Null: the system refused; OsLastError() has the reason.
OsThread* OsThreadStart(OsThreadEntry entry, void* argument, const char* description);
// True: the thread has ended. -1 waits without limit. May be called again after false.
bool OsThreadJoin(OsThread* thread, std::int32_t timeout_ms);
// Last resort, after a join timed out: ends the thread where it is, and waits for its end. What it
// held stays held, except locks: the thread is not ended inside the heap, the loader, an OsLock or
// a TerminationShield, as far as the system's own locks can be seen from outside. False: it
// continues, because it was inside one of these for a second, or because threads cannot be ended
// from outside (POSIX: cancellation unwinds the application's callbacks, which ends the process at
// a `noexcept` or `catch (...)`).
bool OsThreadTerminate(OsThread* thread);
// While one exists, the calling thread is not terminated. Around calls of the system that take
// locks of their own. From the wait for an OsLock until it is left, a thread needs none.
class TerminationShield {
public:
    TerminationShield();
    // NOLINTNEXTLINE(performance-trivially-destructible): on Windows it is not
    ~TerminationShield();
    TerminationShield(const TerminationShield&) = delete;
    TerminationShield& operator=(const TerminationShield&) = delete;
};
// Gives up the handle. A thread that still runs continues.
void OsThreadClose(OsThread* thread);
bool OsThreadIsCurrent(const OsThread* thread);
void* OsThreadHandle(const OsThread* thread);  // for log lines

// The library stays loaded from the start of its first thread until this is called when none runs
// any more, whatever the application unloads. Waits at most patience_ms for threads that are about
// to end; the calling thread counts as running but is not waited for. False: the library stays
// loaded.
bool OsAllowUnloading(std::uint32_t patience_ms);
// False once unloading was allowed, until the next thread is started.
bool OsThreadsMayRun();
// The library is being unloaded. Releases what the above needs, unless the process ends with
// threads running.
void OsEndThreads();

// The calling thread's id as the system numbers it.
std::uint32_t OsCurrentThreadId();
// A number that belongs to the calling thread, initially 0.
std::intptr_t OsThreadValue();
void OsSetThreadValue(std::intptr_t value);
// The calling thread's last system error (GetLastError / errno).
std::int32_t OsLastError();
void OsSetLastError(std::int32_t error);

}  // namespace tarvik
