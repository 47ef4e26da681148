#include "platform/user.h"

#include <pwd.h>
#include <unistd.h>

#include <cstring>

#include "platform/posix/standard_descriptors.h"

namespace tarvik {

bool OsUserName(char* name, std::uint32_t capacity) {
    char strings[4096];
    passwd entry{};
    passwd* found = nullptr;
    const StandardDescriptorsTaken standard;
    if (::getpwuid_r(::geteuid(), &entry, strings, sizeof strings, &found) != 0) return false;
    if (found == nullptr) return false;
    const std::size_t size = std::strlen(found->pw_name) + 1;
    if (size > capacity) return false;
    std::memcpy(name, found->pw_name, size);
    return true;
}

}  // namespace tarvik
