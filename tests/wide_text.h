#pragma once

#include <windows.h>

#include <string>

// Texts of the tests, which are UTF-8, for the functions of Windows, and back.

inline std::wstring Wide(const std::string& text) {
    const int size = static_cast<int>(text.size());
    std::wstring wide(text.size(), L'\0');
    wide.resize(static_cast<std::size_t>(
        ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), size)));
    return wide;
}

inline std::string Narrow(const std::wstring& wide) {
    const int size = static_cast<int>(wide.size());
    std::string text(wide.size() * 3, '\0');
    text.resize(static_cast<std::size_t>(
        ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, text.data(),
                              static_cast<int>(text.size()), nullptr, nullptr)));
    return text;
}
