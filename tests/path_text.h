#pragma once

#include <filesystem>
#include <string>

// Paths as UTF-8 text, as the library and the client have them on both systems. The standard
// library would read narrow text as something else on Windows.

// A file name beyond every ANSI code page.
inline constexpr char kForeignName[] = "Пётр 山田 😀";

inline std::filesystem::path PathOf(const std::string& text) {
    return std::u8string(text.begin(), text.end());
}

inline std::string TextOf(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}
