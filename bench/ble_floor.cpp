#include "ble_floor.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <thread>

#include "simulator_control.h"

namespace tarvik::bench {

namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr const char* kAdapter = "/org/bluez/hci0";
constexpr const char* kDevice = "/org/bluez/hci0/dev_02_42_52_4E_58_02";
constexpr const char* kUuid = "34a242a7-5bc9-45d3-92e4-af6f9138ff00";
constexpr const char* kCharacteristicInterface = "org.bluez.GattCharacteristic1";

using Properties = std::map<std::string, sdbus::Variant>;
using Objects = std::map<sdbus::ObjectPath, std::map<std::string, Properties>>;

void Await(const std::function<bool()>& happened, const char* what) {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (!happened()) {
        if (std::chrono::steady_clock::now() > limit) {
            std::fprintf(stderr, "bench: %s did not come\n", what);
            std::_Exit(1);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// CREQ: 22 F1 90 to 7E0, answered by 7E8.
std::vector<std::uint8_t> MakeRequest() {
    std::vector<std::uint8_t> bytes = {'Q', 'E', 'R', 'C'};
    const auto add = [&bytes](std::uint32_t value) {
        for (int i = 0; i < 4; ++i)
            bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    };
    add(35);
    for (const std::uint32_t id : {0x7DFu, 0x7E0u, 0x7E8u})
        add(id);
    add(2000);  // ms
    add(3);     // bytes of the request
    add(1);     // its id
    for (const std::uint8_t byte : std::array<std::uint8_t, 3>{0x22, 0xF1, 0x90})
        bytes.push_back(byte);
    return bytes;
}

}  // namespace

BleFloor::BleFloor() : connection_(sdbus::createSystemBusConnection()), request_(MakeRequest()) {
    CommandSimulator(R"(@1 radio {"name": "Floor"})");  // not a dongle that the library looks for
    connection_->addMatch(
        "type='signal',sender='org.bluez',interface='org.freedesktop.DBus.Properties',"
        "member='PropertiesChanged',path_namespace='" +
            std::string(kDevice) + "'",
        [this](sdbus::Message& message) { OnChanged(message); }, sdbus::floating_slot);
    connection_->enterEventLoopAsync();
    Discover();
    Call(kDevice, "org.bluez.Device1", "Connect");
    Await([this] { return FindCharacteristic(); }, "the dongle's characteristic");
    characteristic_ = sdbus::createProxy(*connection_, "org.bluez", path_);
    Call(path_, kCharacteristicInterface, "StartNotify");
}

BleFloor::~BleFloor() {
    Call(path_, kCharacteristicInterface, "StopNotify");
    Call(kDevice, "org.bluez.Device1", "Disconnect");
    characteristic_.reset();
    connection_->leaveEventLoop();
}

void BleFloor::Call(const std::string& path, const char* interface, const char* method) {
    sdbus::createProxy(*connection_, "org.bluez", path)->callMethod(method).onInterface(interface);
}

bool BleFloor::IsThere(const std::string& path) {
    Objects objects;
    sdbus::createProxy(*connection_, "org.bluez", "/")
        ->callMethod("GetManagedObjects")
        .onInterface("org.freedesktop.DBus.ObjectManager")
        .storeResultsTo(objects);
    for (const auto& [each, interfaces] : objects) {
        const auto found = interfaces.find(kCharacteristicInterface);
        if (!each.starts_with(kDevice) || found == interfaces.end()) continue;
        // Only a connected dongle has an MTU.
        if (found->second.at("UUID").get<std::string>() != kUuid) continue;
        if (found->second.contains("MTU")) path_ = each;
    }
    return objects.contains(sdbus::ObjectPath(path));
}

bool BleFloor::FindCharacteristic() { return IsThere(kDevice) && !path_.empty(); }

void BleFloor::Discover() {
    const char* const interface = "org.bluez.Adapter1";
    sdbus::createProxy(*connection_, "org.bluez", kAdapter)
        ->callMethod("SetDiscoveryFilter")
        .onInterface(interface)
        .withArguments(Properties{{"Transport", sdbus::Variant(std::string("le"))}});
    Call(kAdapter, interface, "StartDiscovery");
    Await([this] { return IsThere(kDevice); }, "the second dongle");
    Call(kAdapter, interface, "StopDiscovery");
}

void BleFloor::OnChanged(sdbus::Message& message) {
    std::string interface;
    Properties properties;
    message >> interface >> properties;
    if (interface != kCharacteristicInterface || !properties.contains("Value")) return;
    const std::lock_guard hold(lock_);
    answered_ = true;
    changed_.notify_one();
}

bool BleFloor::Ask() {
    answered_ = false;
    characteristic_->callMethod("WriteValue")
        .onInterface(kCharacteristicInterface)
        .withArguments(request_, Properties{{"type", sdbus::Variant(std::string("command"))}});
    std::unique_lock hold(lock_);
    return changed_.wait_for(hold, kPatience, [this] { return answered_; });
}

}  // namespace tarvik::bench
