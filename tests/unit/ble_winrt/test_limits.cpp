#include "unit/ble_winrt/test_limits.h"

#define GetWinrtLimits GetLibraryWinrtLimits
#include "transport/ble/winrt_limits.cpp"
#undef GetWinrtLimits

namespace tarvik {
namespace {

WinrtLimits limits = GetLibraryWinrtLimits();

}  // namespace

const WinrtLimits& GetWinrtLimits() { return limits; }

namespace test {

void SetWinrtLimits(const WinrtLimits& changed) { limits = changed; }
const WinrtLimits& LibraryWinrtLimits() { return GetLibraryWinrtLimits(); }

}  // namespace test
}  // namespace tarvik
