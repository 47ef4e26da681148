#include <filesystem>

#include "doctor/surroundings.h"

namespace dpdu {
namespace {

namespace fs = std::filesystem;

// Files from a machine whose clock is a little ahead.
constexpr std::chrono::hours kTolerance{24};

bool IsFromTheFuture(const std::string& path) {
    std::error_code error;
    const fs::file_time_type written = fs::last_write_time(path, error);
    return !error && written > fs::file_time_type::clock::now() + kTolerance;
}

}  // namespace

Findings CheckClock(const std::string& library_path, const std::string& config_path) {
    for (const std::string& path : {library_path, config_path}) {
        if (!IsFromTheFuture(path)) continue;
        return {{Verdict::kWrong, "clock", "stands before the time of " + path,
                 "set the system's clock; certificates are refused otherwise"}};
    }
    return {{Verdict::kFine, "clock", "not before the library's and the configuration's own time"}};
}

}  // namespace dpdu
