#include <cstdlib>

#include "text/names.h"

#include <sys/stat.h>

namespace dpdu {

std::FILE* OpenFile(const std::string& path, const char* mode) {
    return std::fopen(path.c_str(), mode);
}

std::string EnvironmentText(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// Unlike the standard library's folder it does not depend on TMP and TEMP.
std::string TemporaryFolder() {
    const std::string folder = EnvironmentText("TMPDIR");
    return folder.empty() ? "/tmp" : folder;
}

std::optional<std::uint64_t> ChangedUs(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(status.st_mtim.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(status.st_mtim.tv_nsec) / 1000;
}

}  // namespace dpdu
