#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

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

// On Debian the port's group is dialout.
std::string PortAdvice(const std::string& path) {
    struct stat port = {};
    if (access(path.c_str(), R_OK | W_OK) == 0 || stat(path.c_str(), &port) != 0) return "";
    return "join the group " + GroupName(port.st_gid) + " (sudo usermod -aG " +
           GroupName(port.st_gid) + " $USER) and log in again";
}

}  // namespace dpdu
