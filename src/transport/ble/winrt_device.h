#pragma once

#include <cstdint>
#include <memory>

#include "platform/event.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/winrt_runtime.h"

namespace tarvik {

// Null: the system does not know the device. Once `give_up` is set, every step up to the
// subscription fails; the event must outlive the device.
std::unique_ptr<BleDevice> OpenWinrtDevice(winrt::Runtime& runtime, OsEvent* give_up,
                                           std::uint64_t address);

}  // namespace tarvik
