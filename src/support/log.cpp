#include "support/log.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "platform/files.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "support/memory.h"
#include "support/temp_folder.h"

namespace tarvik {

static constexpr std::size_t kPrefixLength = 22;  // "[2024-05-22 13:00:00] "
static constexpr std::size_t kStackLine = 1024;   // longer lines take their room from the heap

static std::atomic<std::FILE*> log_file{nullptr};
static Immortal<OsLock> log_lock;  // serialises whole lines; guards the prefix
static std::int64_t prefix_second = -1;
static char prefix[kPrefixLength + 1];

namespace {
// A caller may log between a system call and looking at that call's error.
class KeepLastError {
public:
    KeepLastError() : error_(OsLastError()) {}
    ~KeepLastError() { OsSetLastError(error_); }
    KeepLastError(const KeepLastError&) = delete;
    KeepLastError& operator=(const KeepLastError&) = delete;

private:
    std::int32_t error_;
};
}  // namespace

bool LogEnabled(int level) {
    return level < kLogMemory && log_file.load(std::memory_order_acquire) != nullptr;
}

// The local calendar time is costly to get, so it is asked for once a second. log_lock is held.
static void RefreshPrefix() {
    const std::int64_t second = OsCalendarSecond();
    if (second == prefix_second) return;
    const CalendarTime now = OsLocalTime();
    char text[64];
    FormatText(text, sizeof text, "[%04d-%02d-%02d %02d:%02d:%02d] ", now.year, now.month, now.day,
               now.hour, now.minute, now.second);
    std::memcpy(prefix, text, kPrefixLength);
    prefix_second = second;
}

// `line` has room for the prefix in front; the message of `length` characters follows it.
static void WriteLine(char* line, std::size_t length) {
    line[kPrefixLength + length] = '\n';
    const LockGuard guard(*log_lock);
    std::FILE* file = log_file.load(std::memory_order_relaxed);
    if (file == nullptr) return;
    RefreshPrefix();
    std::memcpy(line, prefix, kPrefixLength);
    std::fwrite(line, 1, kPrefixLength + length + 1, file);
    std::fflush(file);
}

TARVIK_PRINTF(2, 0)
static void WriteLongLine(std::size_t length, const char* format, std::va_list arguments) {
    const Tracked<char> line(static_cast<char*>(AllocateMem(kPrefixLength + length + 1)));
    if (line == nullptr) return;
    if (std::vsnprintf(line.get() + kPrefixLength, length + 1, format, arguments) < 0) return;
    WriteLine(line.get(), length);
}

void Log(int level, const char* format, ...) {
    if (!LogEnabled(level)) return;
    const KeepLastError keep;
    char line[kStackLine];
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length =
        std::vsnprintf(line + kPrefixLength, kStackLine - kPrefixLength, format, arguments);
    if (length >= static_cast<int>(kStackLine - kPrefixLength)) {
        WriteLongLine(static_cast<std::size_t>(length), format, again);
    } else if (length >= 0) {
        WriteLine(line, static_cast<std::size_t>(length));
    }
    va_end(again);
    va_end(arguments);
}

static bool LogFilePath(char (&path)[kMaxPath]) {
    char folder[kMaxPath];
    return FormatText(path, sizeof path, "%sdpdu_debug_%lu.log", TempFolder(folder),
                      static_cast<unsigned long>(OsProcessId())) >= 0;
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

// The stream ends with the library, not with PDUDestruct: an application that loads and unloads
// the library over and over would otherwise run out of streams. Runs last of all unload notices,
// so that theirs still reach the file.
__attribute__((destructor(101))) static void CloseDebugLogAtUnload() {
    const LockGuard guard(*log_lock);
    std::FILE* file = log_file.exchange(nullptr);
    if (file != nullptr) std::fclose(file);
}

void ConsolePrint(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::fflush(stdout);  // progress is for now, also when the output is a pipe
}

int FormatText(char* buffer, std::size_t size, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length >= 0 && static_cast<std::size_t>(length) < size ? length : -1;
}

HexText::HexText(const void* data, std::size_t size, Style style) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    const std::size_t width = style == Style::kSpaced ? 3 : 2;
    std::size_t room = sizeof inline_ / width - 1;
    char* out = inline_;
    if (size > room) {
        heap_ = static_cast<char*>(AllocateArray(size + 1, width));
        if (heap_ != nullptr) {
            out = heap_;
        } else {
            size = room;
        }
    }
    text_ = out;
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    for (std::size_t i = 0; i < size; ++i) {
        *out++ = kDigits[bytes[i] >> 4];
        *out++ = kDigits[bytes[i] & 15];
        if (style == Style::kSpaced) *out++ = ' ';
    }
    *out = '\0';
}

HexText::~HexText() { FreeMem(heap_); }

}  // namespace tarvik
