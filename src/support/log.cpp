#include "support/log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/console_output.h"
#include "support/keep_last_error.h"
#include "support/memory.h"

namespace tarvik {
namespace {

TARVIK_PRINTF(2, 0)
void WriteLongLine(std::size_t length, const char* format, std::va_list arguments) {
    const Tracked<char> line(static_cast<char*>(AllocateMem(kLogPrefixLength + length + 1)));
    if (line == nullptr) return;
    if (std::vsnprintf(line.get() + kLogPrefixLength, length + 1, format, arguments) < 0) return;
    WriteLogLine(line.get(), length);
}

// `brief` holds the first part of the text, or all of it.
TARVIK_PRINTF(4, 0)
void PrintText(const char* brief, std::size_t room, std::size_t length, const char* format,
               std::va_list arguments) {
    if (length < room) {
        WriteConsoleText(brief, length);
        return;
    }
    const Tracked<char> text(static_cast<char*>(AllocateMem(length + 1)));
    if (text == nullptr) {
        WriteConsoleText(brief, room - 1);  // better than nothing
        return;
    }
    if (std::vsnprintf(text.get(), length + 1, format, arguments) < 0) return;
    WriteConsoleText(text.get(), length);
}

}  // namespace

void Log(int level, const char* format, ...) {
    if (!LogEnabled(level)) return;
    const KeepLastError keep;
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const std::size_t long_length = WriteBriefLogLine(format, arguments);
    if (long_length > 0) WriteLongLine(long_length, format, again);
    va_end(again);
    va_end(arguments);
}

void ConsolePrint(const char* format, ...) {
    const KeepLastError keep;
    char brief[1024];
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(brief, sizeof brief, format, arguments);
    if (length > 0) PrintText(brief, sizeof brief, static_cast<std::size_t>(length), format, again);
    va_end(again);
    va_end(arguments);
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

// Without memory, long text is cut.
PrintableText::PrintableText(const char* text, std::size_t size) {
    char* out = inline_;
    if (size >= sizeof inline_) {
        heap_ = static_cast<char*>(AllocateMem(size + 1));
        if (heap_ != nullptr) {
            out = heap_;
        } else {
            size = sizeof inline_ - 1;
        }
    }
    std::transform(text, text + size, out, PrintableCharacter);
    out[size] = '\0';
    text_ = out;
}

PrintableText::PrintableText(const char* text) : PrintableText(text, std::strlen(text)) {}

PrintableText::~PrintableText() { FreeMem(heap_); }

}  // namespace tarvik
