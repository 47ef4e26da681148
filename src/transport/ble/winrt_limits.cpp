#include "transport/ble/winrt_limits.h"

namespace tarvik {

const WinrtLimits& GetWinrtLimits() {
    static constexpr WinrtLimits kLimits = {
        .connect_ms = 60'000,
        .write_ms = 5'000,
        .pdu_wait_ms = 2'000,
        .pdu_poll_ms = 20,
        .close_ms = 1'000,
    };
    return kLimits;
}

}  // namespace tarvik
