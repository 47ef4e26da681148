#pragma once

#include <cstdint>
#include <memory>

#include "transport/ble/ble_radio.h"
#include "transport/ble/bluez_bus.h"
#include "transport/ble/bluez_open_devices.h"

namespace tarvik {

// Null: BlueZ does not know the dongle, or cannot reach it.
std::unique_ptr<BleDevice> OpenBluezDevice(const std::shared_ptr<BluezBus>& bus,
                                           const std::shared_ptr<BluezOpenDevices>& open_devices,
                                           std::uint64_t address);

}  // namespace tarvik
