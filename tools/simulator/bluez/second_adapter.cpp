#include "bluez/second_adapter.h"

#include "bluez/device.h"

namespace brennix {

namespace {

constexpr std::int16_t kRssi = -40;

BusObject::Method Refusing(const char* method, const char* error) {
    return {method, "", "", [error](sdbus::MethodCall) {
                throw sdbus::Error(error, "there is no radio behind this adapter");
            }};
}

}  // namespace

SecondAdapter::SecondAdapter(sdbus::IConnection* connection, const std::string& path, bool powered,
                             const std::string& address)
    : powered_(powered),
      adapter_(connection, path, "org.bluez.Adapter1", {},
               {{"Address", std::string("02:00:00:00:00:FE")}, {"Powered", powered}}),
      device_(connection, DevicePath(path, address), "org.bluez.Device1",
              {Refusing("Connect", "org.bluez.Error.NotReady"),
               Refusing("Disconnect", "org.bluez.Error.NotConnected")},
              {{"Adapter", sdbus::ObjectPath(path)},
               {"Address", address},
               {"Connected", false},
               {"Name", std::string("Brennix")},
               {"ServicesResolved", false}}) {}

void SecondAdapter::Hear() {
    if (powered_) device_.Set({{"RSSI", kRssi}});
}

}  // namespace brennix
