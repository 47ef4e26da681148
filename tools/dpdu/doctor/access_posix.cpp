#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "doctor/access.h"

namespace dpdu {
namespace {

std::string GroupName(gid_t id) {
    const group* found = getgrgid(id);
    return found ? found->gr_name : std::to_string(id);
}

}  // namespace

std::string OtherReaders(const std::string& path) {
    struct stat file = {};
    if (stat(path.c_str(), &file) != 0) return "";
    if ((file.st_mode & S_IROTH) != 0) return "everyone";
    return (file.st_mode & S_IRGRP) != 0 ? "the group " + GroupName(file.st_gid) : "";
}

std::string KeepToOwnerCommand(const std::string& path) { return "chmod 600 '" + path + "'"; }

bool CanCreateFilesIn(const std::string& folder) {
    return access(folder.c_str(), W_OK | X_OK) == 0;
}

std::string CreateFolderCommand(const std::string& folder) { return "mkdir -p '" + folder + "'"; }

const int kErrorOfPortInUse = EBUSY;

OpenFailure WhyNotOpened(int error) {
    if (error == kErrorOfPortInUse) return OpenFailure::kInUse;
    return error == EACCES || error == EPERM ? OpenFailure::kNoAccess : OpenFailure::kOther;
}

}  // namespace dpdu
