// This version uses no Bluetooth. The descriptor keeps the transport's place, number and limits in
// the table, where applications and the module list see them; nothing is ever found.
#include "transport/transport.h"

namespace tarvik {

static void BleInit() {}
static void BleDeinit() {}
static void BleStart() {}
static void BleStop() {}
static bool BleUpdateDevices(std::uint32_t, ReportDevice, void*) { return false; }

const Transport kBleTransport = {
    .name = "BLE",
    .id = 3,
    .interface_name = "Bluetooth",
    .connection_type = "BLE",
    .module_type_id = 1,
    .mtu = 244,
    .Init = BleInit,
    .Deinit = BleDeinit,
    .Start = BleStart,
    .Stop = BleStop,
    .UpdateDevices = BleUpdateDevices,
    .AddressDevice = nullptr,
    .Disconnect = nullptr,
    .update_timeout_ms = 2000,
    .connect_timeout_ms = 3000,
};

}  // namespace tarvik
