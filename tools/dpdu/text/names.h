// Names that the system gives and takes, as UTF-8 on Windows and as they are on Linux.

#ifndef TOOLS_DPDU_TEXT_NAMES_H
#define TOOLS_DPDU_TEXT_NAMES_H

#include <cstdio>
#include <filesystem>
#include <string>

namespace dpdu {

// The standard library would not read narrow text as UTF-8 on Windows.
inline std::filesystem::path PathOf(const std::string& text) {
    return std::u8string(text.begin(), text.end());
}

inline std::string TextOf(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// fopen.
std::FILE* OpenFile(const std::string& path, const char* mode);

// Empty: the variable is not set.
std::string EnvironmentText(const char* name);

}  // namespace dpdu

#endif  // TOOLS_DPDU_TEXT_NAMES_H
