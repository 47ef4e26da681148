#pragma once

#include <cstddef>

#if defined(__MINGW32__)
#define TARVIK_PRINTF(format_index, first) __attribute__((format(gnu_printf, format_index, first)))
#else
#define TARVIK_PRINTF(format_index, first) __attribute__((format(printf, format_index, first)))
#endif

namespace tarvik {

// printf into `buffer`; the number of characters, or -1 when it failed or did not fit
// (the text is cut then, and always ended by NUL).
int FormatText(char* buffer, std::size_t size, const char* format, ...) TARVIK_PRINTF(3, 4);

// '.' for a control character, which could move a terminal's cursor or forge a line of the log.
// Everything else stays, UTF-8 included.
constexpr char PrintableCharacter(char c) {
    const auto code = static_cast<unsigned char>(c);
    return code < 0x20 || code == 0x7F ? '.' : c;
}

}  // namespace tarvik
