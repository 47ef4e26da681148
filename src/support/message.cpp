#include "support/message.h"

#include <algorithm>
#include <cstring>

#include "platform/message_box.h"
#include "platform/process.h"
#include "platform/window_station.h"
#include "support/log_file.h"

namespace tarvik {
namespace {

void Report(int level, const char* text, const char* caption) {
    char line[960];  // fits into a brief log line; a longer text is cut
    FormatText(line, sizeof line - 1, "[MessageBox] %s: %s", caption, text);
    const std::size_t length = std::strlen(line);
    std::replace(line, line + length, '\n', ' ');
    LogBrief(level, "%s", line);
    std::memcpy(line + length, "\n", 2);
    OsDebugOutput(line);
}

}  // namespace

void ShowError(const char* text, const char* caption) {
    if (!OsWindowsAreSeen()) return Report(kLogCritical, text, caption);
    OsMessageBox(text, caption, BoxIcon::kError);
}

void ShowWarning(const char* text, const char* caption) {
    if (!OsWindowsAreSeen()) return Report(kLogError, text, caption);
    OsMessageBox(text, caption, BoxIcon::kWarning);
}

}  // namespace tarvik
