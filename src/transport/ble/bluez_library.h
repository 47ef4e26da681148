#pragma once

namespace tarvik {

// Loads sdbus-c++, which is then part of the process until it ends. Nothing of it may be used
// before, values included. Throws a BleError that says what is missing. Further calls do nothing.
void LoadBluezLibrary();

}  // namespace tarvik
