#include "transport/ble/bluez_objects.h"

#include <charconv>

#include "transport/ble/ble_radio.h"

namespace tarvik {
namespace {

template <typename T>
void ReadValue(const BluezPropertyMap& map, const char* name, std::optional<T>* value) {
    const auto found = map.find(name);
    if (found != map.end() && found->second.containsValueOfType<T>())
        *value = found->second.get<T>();
}

}  // namespace

BluezProperties::BluezProperties(const BluezPropertyMap& map) {
    ReadValue(map, "Address", &address);
    ReadValue(map, "Name", &name);
    ReadValue(map, "UUID", &uuid);
    ReadValue(map, "Powered", &powered);
    ReadValue(map, "Discovering", &discovering);
    ReadValue(map, "Connected", &connected);
    ReadValue(map, "ServicesResolved", &services_resolved);
    ReadValue(map, "RSSI", &rssi);
    ReadValue(map, "MTU", &mtu);
    ReadValue(map, "Value", &value);
    std::optional<sdbus::ObjectPath> path;
    ReadValue(map, "Service", &path);
    if (path) service = *path;
}

bool IsBluezInterface(const std::string& name) {
    for (const char* known : {kBluezAdapter, kBluezDevice, kBluezService, kBluezCharacteristic}) {
        if (name == known) return true;
    }
    return false;
}

void AppendObjects(const std::string& path, const BluezInterfaces& interfaces,
                   std::vector<BluezObject>* objects) {
    for (const auto& [interface, properties] : interfaces) {
        if (IsBluezInterface(interface))
            objects->push_back({path, interface, BluezProperties(properties)});
    }
}

std::optional<std::uint64_t> BluezAddress(const std::string& text) {
    std::uint64_t address = 0;
    if (text.size() != 17) return std::nullopt;
    for (std::size_t at = 0; at < text.size(); at += 3) {
        std::uint8_t byte = 0;
        const char* begin = text.data() + at;
        const auto [end, error] = std::from_chars(begin, begin + 2, byte, 16);
        if (error != std::errc() || end != begin + 2) return std::nullopt;
        address = address << 8 | byte;
    }
    return address;
}

bool IsBelow(const std::string& path, const std::string& parent) {
    return path.size() > parent.size() && path[parent.size()] == '/' &&
           path.compare(0, parent.size(), parent) == 0;
}

std::string PoweredAdapter(const std::vector<BluezObject>& objects) {
    bool found = false;
    for (const BluezObject& object : objects) {
        if (object.interface != kBluezAdapter) continue;
        found = true;
        if (object.properties.powered.value_or(false)) return object.path;
    }
    throw BleError(found ? "the Bluetooth adapter is switched off"
                         : "there is no Bluetooth adapter");
}

}  // namespace tarvik
