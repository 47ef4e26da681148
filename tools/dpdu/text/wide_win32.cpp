#include "text/wide_win32.h"

#include <windows.h>

namespace dpdu {

std::wstring ToWide(const std::string& text) {
    const int size = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    const int used = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), size);
    wide.resize(static_cast<std::size_t>(used));
    return wide;
}

std::string FromWide(std::wstring_view wide) {
    std::string text(wide.size() * 3, '\0');
    const int used =
        ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(),
                              static_cast<int>(text.size()), nullptr, nullptr);
    text.resize(static_cast<std::size_t>(used));
    return text;
}

std::size_t WholeCharacters(std::wstring_view text, std::size_t most) {
    if (text.size() <= most) return text.size();
    const bool divides = IS_HIGH_SURROGATE(text[most - 1]) && IS_LOW_SURROGATE(text[most]);
    return divides ? most - 1 : most;
}

std::string WithCarriageReturns(const std::string& text) {
    std::string returned;
    returned.reserve(text.size() + 64);
    for (const char character : text) {
        const bool has_return = !returned.empty() && returned.back() == '\r';
        if (character == '\n' && !has_return) returned += '\r';
        returned += character;
    }
    return returned;
}

}  // namespace dpdu
