#include <filesystem>

#include "doctor/surroundings.h"
#include "text/names.h"

namespace dpdu {
namespace {

// Allows for files from a machine whose clock is slightly ahead.
constexpr std::chrono::hours kTolerance{24};

bool IsFromTheFuture(const std::string& path) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::file_time_type written = fs::last_write_time(PathOf(path), error);
    return !error && written > fs::file_time_type::clock::now() + kTolerance;
}

}  // namespace

Findings CheckClock(const std::string& library_path, const std::string& config_path) {
    for (const std::string& path : {library_path, config_path}) {
        if (IsFromTheFuture(path)) return {Found(Diagnosis::kClockEarly, {{"path", path}})};
    }
    return {Found(Diagnosis::kClock)};
}

}  // namespace dpdu
