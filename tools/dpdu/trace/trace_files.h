// The traces and logs that libraries of this project have left in the folder for temporary files.

#ifndef TOOLS_DPDU_TRACE_TRACE_FILES_H
#define TOOLS_DPDU_TRACE_TRACE_FILES_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace dpdu::trace {

enum class LeftKind { kTrace, kLog };

struct LeftFile {
    std::string path;
    LeftKind kind = LeftKind::kTrace;
    unsigned long process = 0;  // that wrote it
    std::uint64_t size = 0;     // bytes
    std::filesystem::file_time_type changed;
};

// Kind and process by the name of a file; nullopt for any other name.
std::optional<LeftFile> ParseLeftName(const std::string& name);

// Those in the folder in which the library writes them, the oldest first. Only files: never links,
// whatever they are called.
std::vector<LeftFile> ListLeftFiles();

// "7d", "12h", "30m" or "90s"; nullopt for anything else.
std::optional<std::chrono::seconds> ParseAge(const std::string& text);

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_TRACE_FILES_H
