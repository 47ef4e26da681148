#pragma once

#include "transport/ble/winrt_limits.h"

namespace tarvik::test {

// Changes the back end's time limits until the next call. No operation may be running.
void SetWinrtLimits(const WinrtLimits& limits);
// The library's own.
const WinrtLimits& LibraryWinrtLimits();

}  // namespace tarvik::test
