#include "ports/port_listing.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace brennix {

void LinkListing::Link(const std::string& slave_path) {
    // Other programs see either the old target or the new one.
    const std::string temporary = path_ + ".new";
    ::unlink(temporary.c_str());
    if (::symlink(slave_path.c_str(), temporary.c_str()) != 0 ||
        ::rename(temporary.c_str(), path_.c_str()) != 0) {
        throw std::system_error(errno, std::generic_category(), path_);
    }
    linked_ = true;
}

void LinkListing::Unlink() {
    if (linked_) ::unlink(path_.c_str());
    linked_ = false;
}

}  // namespace brennix
