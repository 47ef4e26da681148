#include "platform/window_station.h"

#include <windows.h>

namespace tarvik {

// A window station of which nothing is known counts as visible.
bool OsWindowsAreSeen() {
    USEROBJECTFLAGS flags = {};
    const HWINSTA station = ::GetProcessWindowStation();
    if (!::GetUserObjectInformationW(station, UOI_FLAGS, &flags, sizeof flags, nullptr))
        return true;
    return (flags.dwFlags & WSF_VISIBLE) != 0;
}

}  // namespace tarvik
