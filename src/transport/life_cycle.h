#pragma once

#include <atomic>
#include <cstdint>

#include "platform/thread.h"

// The steps of starting and stopping that transports share, with their log lines.
namespace tarvik {

// What follows "Not initialized" in the log when Start is refused.
inline constexpr char kCannotStart[] = ", cannot start";

// Returns `initialized`. If it is false, logs "[WHO] Not initialized" and `consequence`.
bool CheckInitialized(bool initialized, const char* who, const char* consequence = "");

// Starts a thread that runs while `running` is set; sets it first. Null, with `running` cleared:
// the system refused, OsLastError() has the reason.
OsThread* StartThreadWithFlag(std::atomic<bool>* running, OsThreadEntry entry,
                              const char* description, void* argument = nullptr);

// Waits for the thread, at most timeout_ms (-1: no limit), and closes it. Logs both under `name`.
// False: it still runs.
bool AwaitAndCloseThread(OsThread* thread, std::int32_t timeout_ms, const char* function,
                         const char* name);
void LogAndCloseThread(OsThread* thread, const char* function, const char* name);

}  // namespace tarvik
