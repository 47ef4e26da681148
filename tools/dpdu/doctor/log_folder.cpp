#include <filesystem>

#include "doctor/access.h"
#include "doctor/surroundings.h"
#include "text/names.h"

namespace dpdu {
namespace {

constexpr std::uintmax_t kMegabyte = 1'000'000;
constexpr std::uintmax_t kEnoughMegabytes = 100;  // a trace of some hours

}  // namespace

Finding LogFolderFinding(const std::string& folder, std::uintmax_t free_bytes) {
    const std::uintmax_t free = free_bytes / kMegabyte;
    return Found(free < kEnoughMegabytes ? Diagnosis::kLogFolderFull : Diagnosis::kLogFolder,
                 {{"path", folder}, {"free", std::to_string(free)}});
}

Findings CheckLogFolder(const tarvik::Config& config) {
    if (!config.enableDebugLogFile && !config.enableCopTrace) return {};
    const std::string folder = TemporaryFolder();
    const std::filesystem::path path = PathOf(folder);
    std::error_code error;
    if (!std::filesystem::is_directory(path, error)) {
        return {Found(Diagnosis::kLogFolderMissing,
                      {{"path", folder}, {"command", CreateFolderCommand(folder)}})};
    }
    if (!CanCreateFilesIn(folder)) {
        return {Found(Diagnosis::kLogFolderRights, {{"path", folder}})};
    }
    const std::filesystem::space_info space = std::filesystem::space(path, error);
    return {LogFolderFinding(folder, error ? 0 : space.available)};
}

}  // namespace dpdu
