#include "platform/user.h"

#include <windows.h>

namespace tarvik {

bool OsUserName(char* name, std::uint32_t capacity) {
    DWORD size = capacity;
    return ::GetUserNameA(name, &size) != 0;
}

}  // namespace tarvik
