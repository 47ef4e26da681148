#pragma once

#include <cstdint>
#include <memory>

#include "platform/event.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/winrt_runtime.h"

namespace tarvik {

// How long an exchange with a dongle may take, in ms. The system gives up long before as a rule: an
// unreachable dongle takes about 7 s of it, and requests of others that wait before may each take
// as long.
struct WinrtLimits {
    // Each step until the dongle is subscribed to: longer than a scan waits for them all, as a
    // dongle that is late is there for the next one.
    std::int32_t connect_ms = 60'000;
    std::int32_t write_ms = 5'000;  // handing one packet to the system
};

std::unique_ptr<BleRadio> OpenWinrtRadio(const WinrtLimits& limits);

std::unique_ptr<BleScan> CreateWinrtScan(winrt::Runtime& runtime, BleScan::Handler& handler);
// Once `give_up` is set, all steps until the dongle is subscribed to fail. It outlives the device.
std::unique_ptr<BleDevice> OpenWinrtDevice(winrt::Runtime& runtime, const WinrtLimits& limits,
                                           OsEvent* give_up, std::uint64_t address);

}  // namespace tarvik
