#pragma once

#include <cstdarg>
#include <cstddef>

#include "support/text.h"

// The debug log file and what can be written to it without the heap. Log (log.h) writes lines of
// any length, so it needs the tracked heap; the heap's own lines go through LogBrief.
namespace tarvik {

inline constexpr int kLogCritical = 0;
inline constexpr int kLogError = 2;
inline constexpr int kLogTrace = 7;
inline constexpr int kLogMemory = 8;  // this level and above is never written

// Whether a line of this level would be written: guards the preparation of costly arguments.
bool LogEnabled(int level);

// Opens the log file as the configuration says; once open it stays open for the process.
void OpenDebugLog(bool enabled);

// As Log, but a line of more than 1000 characters is not written.
void LogBrief(int level, const char* format, ...) TARVIK_PRINTF(2, 3);

// Writes a brief line. Not 0: the length of a line that is too long for that; nothing was written.
std::size_t WriteBriefLogLine(const char* format, std::va_list arguments) TARVIK_PRINTF(1, 0);

inline constexpr std::size_t kLogPrefixLength = 22;  // "[2024-05-22 13:00:00] "
// `line` has the message after room for the prefix, and room for a line feed after the message.
void WriteLogLine(char* line, std::size_t message_length);

}  // namespace tarvik
