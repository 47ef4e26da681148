#include "support/log_file.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "platform/files.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/process.h"
#include "support/keep_last_error.h"
#include "support/temp_folder.h"

namespace tarvik {
namespace {

constexpr std::size_t kBriefLine = 1024;  // with the prefix

std::atomic<std::FILE*> log_file{nullptr};
Immortal<OsLock> log_lock;  // serialises whole lines; guards the prefix
std::int64_t prefix_second = -1;
char prefix[kLogPrefixLength + 1];

// Reading the local time is costly, so it is done once a second. log_lock is held.
void RefreshPrefix() {
    const std::int64_t second = OsCalendarSecond();
    if (second == prefix_second) return;
    const CalendarTime now = OsLocalTime();
    char text[64];
    FormatText(text, sizeof text, "[%04d-%02d-%02d %02d:%02d:%02d] ", now.year, now.month, now.day,
               now.hour, now.minute, now.second);
    std::memcpy(prefix, text, kLogPrefixLength);
    prefix_second = second;
}

bool LogFilePath(char (&path)[kMaxPath]) {
    char folder[kMaxPath];
    return FormatText(path, sizeof path, "%sdpdu_debug_%lu.log", TempFolder(folder),
                      static_cast<unsigned long>(OsProcessId())) >= 0;
}

// At unload, as PDUDestruct leaves the stream open: an application that keeps loading and unloading
// the library would run out of streams. Runs after all other unload functions, so that their lines
// still reach the file.
__attribute__((destructor(101))) void CloseDebugLogAtUnload() {
    if (OsIsForked()) return;
    const LockGuard guard(*log_lock);
    std::FILE* file = log_file.exchange(nullptr);
    if (file != nullptr) std::fclose(file);
}

}  // namespace

bool LogEnabled(int level) {
    return level < kLogMemory && log_file.load(std::memory_order_acquire) != nullptr;
}

void WriteLogLine(char* line, std::size_t message_length) {
    line[kLogPrefixLength + message_length] = '\n';
    const LockGuard guard(*log_lock);
    std::FILE* file = log_file.load(std::memory_order_relaxed);
    if (file == nullptr) return;
    RefreshPrefix();
    std::memcpy(line, prefix, kLogPrefixLength);
    std::fwrite(line, 1, kLogPrefixLength + message_length + 1, file);
    std::fflush(file);
}

std::size_t WriteBriefLogLine(const char* format, std::va_list arguments) {
    char line[kBriefLine];
    constexpr std::size_t kRoom = sizeof line - kLogPrefixLength;
    const int length = std::vsnprintf(line + kLogPrefixLength, kRoom, format, arguments);
    if (length < 0) return 0;
    const auto message_length = static_cast<std::size_t>(length);
    if (message_length >= kRoom) return message_length;
    WriteLogLine(line, message_length);
    return 0;
}

void LogBrief(int level, const char* format, ...) {
    if (!LogEnabled(level)) return;
    const KeepLastError keep;
    std::va_list arguments;
    va_start(arguments, format);
    WriteBriefLogLine(format, arguments);
    va_end(arguments);
}

void OpenDebugLog(bool enabled) {
    if (!enabled) {
        OsDebugOutput("[DebugLog] Disabled via config enableDebugLogFile=false\n");
        return;
    }
    const LockGuard guard(*log_lock);
    if (log_file.load(std::memory_order_relaxed) != nullptr) return;
    char path[kMaxPath];
    std::FILE* file = LogFilePath(path) ? OsOpenStream(path, "a+b") : nullptr;
    if (file == nullptr) {
        OsDebugOutput("[DebugLog] Failed to open debug log file\n");
        return;
    }
    char notice[kMaxPath + 32];
    FormatText(notice, sizeof notice, "[DebugLog] Writing to %s\n", path);
    OsDebugOutput(notice);
    log_file.store(file, std::memory_order_release);
}

}  // namespace tarvik
