#include "support/text.h"

#include <cstdarg>
#include <cstdio>

namespace tarvik {

int FormatText(char* buffer, std::size_t size, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length >= 0 && static_cast<std::size_t>(length) < size ? length : -1;
}

}  // namespace tarvik
