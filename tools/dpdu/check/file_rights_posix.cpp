#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <filesystem>

#include "check/file_rights.h"

namespace dpdu::check {
namespace {

std::string UserName(uid_t id) {
    const passwd* found = ::getpwuid(id);
    return found != nullptr ? found->pw_name : std::to_string(id);
}

std::string GroupName(gid_t id) {
    const group* found = ::getgrgid(id);
    return found != nullptr ? found->gr_name : std::to_string(id);
}

// Empty: only root can. In a folder with the sticky bit only owners replace files.
std::string WriterOf(const struct stat& file) {
    if (file.st_uid != 0) return "the user " + UserName(file.st_uid);
    if (S_ISDIR(file.st_mode) && (file.st_mode & S_ISVTX) != 0) return "";
    if ((file.st_mode & S_IWOTH) != 0) return "every user";
    const bool has_group = (file.st_mode & S_IWGRP) != 0 && file.st_gid != 0;
    return has_group ? "the group " + GroupName(file.st_gid) : "";
}

std::optional<Writer> WriterOnTheWayTo(std::filesystem::path at) {
    for (;; at = at.parent_path()) {
        struct stat file = {};
        if (::stat(at.c_str(), &file) != 0) return std::nullopt;
        const std::string who = WriterOf(file);
        if (!who.empty()) return Writer{at.string(), who};
        if (at == at.parent_path()) return std::nullopt;
    }
}

}  // namespace

// Whoever can replace a link can lead it elsewhere, so its folders count too.
std::optional<Writer> OtherWriter(const std::string& path) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::canonical(path, error);
    if (error) return std::nullopt;
    const auto writer = WriterOnTheWayTo(target);
    if (writer) return writer;
    return WriterOnTheWayTo(std::filesystem::absolute(path).lexically_normal().parent_path());
}

}  // namespace dpdu::check
