#include "unit/faults/user_fault.h"

#include <cstring>
#include <optional>

// The platform's source, with its OsUserName under another name. This object then defines all that
// the source does, so the linker takes nothing of it from the library.
#define OsUserName SystemUserName
#ifdef _WIN32
#include "platform/win32/user.cpp"
#else
#include "platform/posix/user.cpp"
#endif
#undef OsUserName

namespace tarvik {
namespace {

std::optional<std::string> user_name;

}  // namespace

bool OsUserName(char* name, std::uint32_t capacity) {
    if (!user_name) return SystemUserName(name, capacity);
    if (user_name->empty() || user_name->size() >= capacity) return false;
    std::memcpy(name, user_name->c_str(), user_name->size() + 1);
    return true;
}

namespace test {

UserNameFault::UserNameFault(const std::string& name) { user_name = name; }

UserNameFault::~UserNameFault() { user_name.reset(); }

}  // namespace test
}  // namespace tarvik
