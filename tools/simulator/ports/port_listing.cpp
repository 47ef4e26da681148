#include "ports/port_listing.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <stdexcept>
#include <system_error>

namespace brennix {

namespace {

[[noreturn]] void ThrowErrorOf(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

// What the symbolic link at `path` leads to; empty if there is no file at all. Throws if there is
// anything else.
std::string TargetOf(const std::string& path) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    if (length >= 0) return {target, static_cast<std::size_t>(length)};
    if (errno == ENOENT) return "";
    if (errno == EINVAL) throw std::runtime_error(path + ": is no symbolic link, so it is kept");
    ThrowErrorOf(path);
}

// A link to a pseudo-terminal is what a simulator leaves that was killed.
bool IsOfASimulator(const std::string& target) { return target.starts_with("/dev/pts/"); }

}  // namespace

void LinkListing::CheckReplaceable() const {
    const std::string target = TargetOf(path_);
    if (target.empty() || target == target_ || IsOfASimulator(target)) return;
    if (replaces_ == Replaces::kOwnLinks) {
        throw std::runtime_error(path_ + ": leads to " + target + ", so it is kept");
    }
}

void LinkListing::Link(const std::string& slave_path) {
    CheckReplaceable();
    // Other programs see either the old target or the new one.
    const std::string temporary = path_ + "." + std::to_string(::getpid()) + ".new";
    if (::symlink(slave_path.c_str(), temporary.c_str()) != 0) ThrowErrorOf(path_);
    if (::rename(temporary.c_str(), path_.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        errno = error;
        ThrowErrorOf(path_);
    }
    target_ = slave_path;
}

void LinkListing::Unlink() {
    if (target_.empty()) return;
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path_.c_str(), target, sizeof target);
    const bool is_own =
        length >= 0 && std::string(target, static_cast<std::size_t>(length)) == target_;
    if (is_own) ::unlink(path_.c_str());
    target_.clear();
}

}  // namespace brennix
