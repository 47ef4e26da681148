#include "transport/cloud/cloud_log.h"

#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace tarvik {

void CloudLog(const char* format, ...) {
    char text[1024];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0) return;

    ConsolePrint("%s", text);
    const std::string_view line(text);
    const std::size_t end = line.find_last_not_of("\r\n");
    Log(kLogTrace, "%.*s", static_cast<int>(end + 1), text);
}

}  // namespace tarvik
