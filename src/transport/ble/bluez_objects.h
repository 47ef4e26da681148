#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

// The objects that BlueZ shows on the bus: adapters, devices, their services and characteristics.
namespace tarvik {

inline constexpr char kBluezAdapter[] = "org.bluez.Adapter1";
inline constexpr char kBluezDevice[] = "org.bluez.Device1";
inline constexpr char kBluezService[] = "org.bluez.GattService1";
inline constexpr char kBluezCharacteristic[] = "org.bluez.GattCharacteristic1";

bool IsBluezInterface(const std::string& name);  // one of those above

using BluezPropertyMap = std::map<std::string, sdbus::Variant>;
using BluezInterfaces = std::map<std::string, BluezPropertyMap>;

// The properties that this library reads, of objects of every kind. A value is empty if the object
// does not have the property or, in a signal, if it has not changed.
struct BluezProperties {
    BluezProperties() = default;
    explicit BluezProperties(const BluezPropertyMap& map);

    std::optional<std::string> address, name, uuid, service;
    std::optional<bool> powered, discovering, connected, services_resolved;
    std::optional<std::int16_t> rssi;
    std::optional<std::uint16_t> mtu;
    std::optional<std::vector<std::uint8_t>> value;
};

struct BluezObject {
    std::string path;
    std::string interface;
    BluezProperties properties;
};

// Appends an entry for each known interface of the object at `path`.
void AppendObjects(const std::string& path, const BluezInterfaces& interfaces,
                   std::vector<BluezObject>* objects);

// Reads "A0:B1:C2:D3:E4:F5", in upper or lower case.
std::optional<std::uint64_t> BluezAddress(const std::string& text);
bool IsBelow(const std::string& path, const std::string& parent);
// The path of the adapter to use. Throws a BleError if there is none, or none that is switched on.
std::string PoweredAdapter(const std::vector<BluezObject>& objects);

}  // namespace tarvik
