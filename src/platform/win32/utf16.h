#pragma once

#include <windows.h>

#include <cstddef>
#include <cstring>

// The library's own texts and paths are UTF-8, the system's functions take and return UTF-16: the
// narrow ones know only the characters of the ANSI code page.
namespace tarvik {

// UTF-8 as UTF-16, on the stack. A text that has no room, or is refused by `Flags`, becomes empty.
template <std::size_t Capacity, DWORD Flags>
class WideText {
public:
    // The NUL is not part of what is converted: after a byte that is not UTF-8 it might be lost.
    explicit WideText(const char* text) {
        const int length = ::MultiByteToWideChar(
            CP_UTF8, Flags, text, static_cast<int>(std::strlen(text)), text_, Capacity - 1);
        text_[length] = L'\0';
        is_whole_ = length > 0 || *text == '\0';
    }

    const wchar_t* Get() const { return text_; }
    bool IsEmpty() const { return text_[0] == L'\0'; }
    // False: it had no room, or was refused.
    bool IsWhole() const { return is_whole_; }

private:
    wchar_t text_[Capacity];
    bool is_whole_;
};

// A path of more than 259 characters, or with a byte that is not UTF-8, becomes empty: no function
// of the system takes an empty path for a file.
using WidePath = WideText<MAX_PATH, MB_ERR_INVALID_CHARS>;

// For people to read: a byte that is not UTF-8 becomes the replacement character.
template <std::size_t Capacity>
using ShownText = WideText<Capacity, 0>;

// The size with the NUL; 0: it does not fit, or is not UTF-16 (a file name may have half a pair of
// surrogates).
inline std::size_t ToUtf8(const wchar_t* wide, char* text, std::size_t capacity) {
    return static_cast<std::size_t>(::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, wide, -1,
                                                          text, static_cast<int>(capacity), nullptr,
                                                          nullptr));
}

}  // namespace tarvik
