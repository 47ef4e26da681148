#include "transport/ble/bluez_limits.h"

namespace tarvik {

const BluezLimits& GetBluezLimits() {
    static constexpr BluezLimits kLimits = {
        .open_bus_ms = 5'000,
        .objects_ms = 5'000,
        .discovery_ms = 5'000,
        .discovery_retry_ms = 300,
        .connect_ms = 40'000,
        .connected_ms = 5'000,
        .resolve_ms = 30'000,
        .subscribe_ms = 10'000,
        .write_ms = 5'000,
        .close_ms = 3'000,
        .close_mute_ms = 100,
        .answer_grace_ms = 1'000,
    };
    return kLimits;
}

}  // namespace tarvik
