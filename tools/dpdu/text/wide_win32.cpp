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

}  // namespace dpdu
