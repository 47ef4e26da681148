#pragma once

#include <cstdarg>
#include <cstddef>

#include "support/text.h"

// The debug log file, and lines that need no heap. Log (log.h) writes lines of any length and needs
// the tracked heap, whose own lines go through LogBrief.
namespace tarvik {

inline constexpr int kLogCritical = 0;
inline constexpr int kLogError = 2;
inline constexpr int kLogTrace = 7;
inline constexpr int kLogMemory = 8;  // this level and above is never written

// Whether a line of this level would be written. To skip the preparation of costly arguments.
bool LogEnabled(int level);

// Opens the log file if the configuration enables it. It then stays open until the library unloads.
void OpenDebugLog(bool enabled);

// As Log, but a line of more than 1000 characters is not written.
void LogBrief(int level, const char* format, ...) TARVIK_PRINTF(2, 3);

// Writes a brief line. Returns 0, or the length of a line that is too long; nothing was written
// then.
std::size_t WriteBriefLogLine(const char* format, std::va_list arguments) TARVIK_PRINTF(1, 0);

inline constexpr std::size_t kLogPrefixLength = 22;  // "[2024-05-22 13:00:00] "
// `line` has room for the prefix before the message, and for a line feed after it.
void WriteLogLine(char* line, std::size_t message_length);

}  // namespace tarvik
