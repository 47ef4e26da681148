// Names that the system gives and takes, as UTF-8 on Windows and as they are on Linux.

#ifndef TOOLS_DPDU_TEXT_NAMES_H
#define TOOLS_DPDU_TEXT_NAMES_H

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
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

// The folder in which this project's library writes traces and logs, whether or not it exists.
std::string TemporaryFolder();

// When the file was last changed, in microseconds since 1970; nullopt if it is not there. The
// standard library gives whole seconds on Windows.
std::optional<std::uint64_t> ChangedUs(const std::string& path);

}  // namespace dpdu

#endif  // TOOLS_DPDU_TEXT_NAMES_H
