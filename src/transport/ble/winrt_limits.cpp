#include "transport/ble/winrt_limits.h"

namespace tarvik {

const WinrtLimits& GetWinrtLimits() {
    static constexpr WinrtLimits kLimits = {
        .connect_ms = 60'000,
        .write_ms = 5'000,
    };
    return kLimits;
}

}  // namespace tarvik
