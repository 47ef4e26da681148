#pragma once

#include <cstddef>
#include <cstdint>

#include "support/log_file.h"
#include "support/text.h"

namespace tarvik {

// Writes a line to the debug log file if the level is below 8 and the file is open. Keeps the
// calling thread's last system error.
void Log(int level, const char* format, ...) TARVIK_PRINTF(2, 3);

// Prints to standard output. Not copied into the log file. While the library is constructed, a
// paused console does not block the caller (see console_output.h).
void ConsolePrint(const char* format, ...) TARVIK_PRINTF(1, 2);

// Bytes as text, for log and console lines. Short data needs no heap.
class HexText {
public:
    enum class Style : unsigned char {
        kSpaced,  // "62 F1 90 ", a blank after every byte
        kPacked,  // "62F190"
    };
    HexText(const void* data, std::size_t size, Style style = Style::kSpaced);
    ~HexText();
    HexText(const HexText&) = delete;
    HexText& operator=(const HexText&) = delete;
    const char* c_str() const { return text_; }

private:
    char inline_[768];
    char* heap_ = nullptr;
    const char* text_ = "";
};

// Text of a dongle or relay, for log and console lines: control characters become '.'. Short text
// needs no heap.
class PrintableText {
public:
    PrintableText(const char* text, std::size_t size);
    explicit PrintableText(const char* text);
    ~PrintableText();
    PrintableText(const PrintableText&) = delete;
    PrintableText& operator=(const PrintableText&) = delete;
    const char* c_str() const { return text_; }

private:
    char inline_[64];
    char* heap_ = nullptr;
    const char* text_ = "";
};

}  // namespace tarvik
