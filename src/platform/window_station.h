#pragma once

namespace tarvik {

// False: no user sees the windows of this process, so nobody can close a message box. It may be a
// service. On Linux a box is text, so always true.
bool OsWindowsAreSeen();

}  // namespace tarvik
