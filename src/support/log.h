#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#if defined(__MINGW32__)
#define TARVIK_PRINTF(format_index, first) __attribute__((format(gnu_printf, format_index, first)))
#else
#define TARVIK_PRINTF(format_index, first) __attribute__((format(printf, format_index, first)))
#endif

namespace tarvik {

inline constexpr int kLogCritical = 0;
inline constexpr int kLogError = 2;
inline constexpr int kLogTrace = 7;
inline constexpr int kLogMemory = 8;  // this level and above is never written

// One line to the debug log file, if the level is below 8 and the file is open. The calling
// thread's last system error is left as it was.
void Log(int level, const char* format, ...) TARVIK_PRINTF(2, 3);
// Whether Log would write: guards the preparation of costly arguments.
bool LogEnabled(int level);

// Opens the log file as the configuration says; once open it stays open for the process.
void OpenDebugLog(bool enabled);

// Prints to standard output. Not copied into the log file.
void ConsolePrint(const char* format, ...) TARVIK_PRINTF(1, 2);

// printf into `buffer`; the number of characters, or -1 when it failed or did not fit
// (the text is cut then, and always ended by NUL).
int FormatText(char* buffer, std::size_t size, const char* format, ...) TARVIK_PRINTF(3, 4);

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

}  // namespace tarvik
