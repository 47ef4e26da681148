// This version reaches no cloud relay. The descriptor keeps the transport's place, number and
// limits in the table, where applications and the module list see them; nothing is ever found.
#include "transport/transport.h"

namespace tarvik {

static void CloudInit() {}
static void CloudDeinit() {}
static void CloudStart() {}
static void CloudStop() {}
static bool CloudUpdateDevices(std::uint32_t, ReportDevice, void*) { return false; }
static bool CloudAddressDevice(const std::uint8_t*) { return false; }

const Transport kCloudTransport = {
    .name = "Cloud",
    .id = 0,
    .interface_name = "Network",
    .connection_type = "Cloud",
    .module_type_id = 1,
    .mtu = 0,
    .Init = CloudInit,
    .Deinit = CloudDeinit,
    .Start = CloudStart,
    .Stop = CloudStop,
    .UpdateDevices = CloudUpdateDevices,
    .AddressDevice = CloudAddressDevice,
    .Disconnect = nullptr,
    .update_timeout_ms = 500,
    .connect_timeout_ms = 5000,
};

}  // namespace tarvik
