#pragma once

#include <memory>

#include "transport/ble/ble_radio.h"
#include "transport/ble/bluez_bus.h"
#include "transport/ble/bluez_open_devices.h"

namespace tarvik {

std::unique_ptr<BleScan> CreateBluezScan(std::shared_ptr<BluezBus> bus,
                                         std::shared_ptr<BluezOpenDevices> open_devices,
                                         BleScan::Handler& handler);

}  // namespace tarvik
