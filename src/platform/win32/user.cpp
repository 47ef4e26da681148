#include "platform/user.h"

#include <lmcons.h>
#include <windows.h>

#include "platform/win32/utf16.h"

namespace tarvik {

bool OsUserName(char* name, std::uint32_t capacity) {
    wchar_t wide[UNLEN + 1];
    DWORD size = UNLEN + 1;
    return ::GetUserNameW(wide, &size) && ToUtf8(wide, name, capacity) > 0;
}

}  // namespace tarvik
