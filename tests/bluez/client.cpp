#include "bluez/client.h"

#include "conformance/framework/waiting.h"

namespace brennix::test {

Client::Client() : connection_(sdbus::createSystemBusConnection()) {
    connection_->addMatch(
        "type='signal',sender='org.bluez',path='/',"
        "interface='org.freedesktop.DBus.ObjectManager',member='InterfacesAdded'",
        [this](sdbus::Message& message) { OnAdded(message); }, sdbus::floating_slot);
    connection_->addMatch(
        "type='signal',sender='org.bluez',interface='org.freedesktop.DBus.Properties',"
        "member='PropertiesChanged',path_namespace='/org/bluez'",
        [this](sdbus::Message& message) { OnChanged(message); }, sdbus::floating_slot);
    connection_->enterEventLoopAsync();
}

Client::~Client() { connection_->leaveEventLoop(); }

void Client::OnAdded(sdbus::Message& message) {
    sdbus::ObjectPath path;
    std::map<std::string, Properties> interfaces;
    message >> path >> interfaces;
    const std::lock_guard hold(lock_);
    for (const auto& [interface, properties] : interfaces) {
        for (const auto& [name, value] : properties)
            seen_[path][name] = value;
    }
    changed_.notify_all();
}

void Client::OnChanged(sdbus::Message& message) {
    std::string interface;
    Properties properties;
    std::vector<std::string> invalidated;
    message >> interface >> properties >> invalidated;
    const std::lock_guard hold(lock_);
    for (const auto& [name, value] : properties) {
        seen_[message.getPath()][name] = value;
        if (value.containsValueOfType<Bytes>())
            byte_signals_.emplace_back(name, value.get<Bytes>());
    }
    for (const std::string& name : invalidated)
        seen_[message.getPath()].erase(name);
    changed_.notify_all();
}

bool Client::Await(const std::string& path, const std::string& property,
                   const std::function<bool(const sdbus::Variant*)>& holds) {
    std::unique_lock hold(lock_);
    return changed_.wait_for(hold, conformance::kPatience, [&] {
        const auto found = seen_[path].find(property);
        return holds(found == seen_[path].end() ? nullptr : &found->second);
    });
}

bool Client::AwaitFlag(const std::string& property, bool value) {
    return Await(kDevice, property, [value](const sdbus::Variant* found) {
        return found != nullptr && found->get<bool>() == value;
    });
}

std::size_t Client::Signalled(const std::string& property, const Bytes& value) {
    const std::lock_guard hold(lock_);
    return static_cast<std::size_t>(
        std::count(byte_signals_.begin(), byte_signals_.end(), std::make_pair(property, value)));
}

std::string Client::Write(const Bytes& value, const std::string& type) {
    return Call(characteristic_, "org.bluez.GattCharacteristic1", "WriteValue", value,
                Properties{{"type", sdbus::Variant(type)}});
}

std::string Client::Discover() {
    const std::string error = Call(kAdapter, "org.bluez.Adapter1", "SetDiscoveryFilter",
                                   Properties{{"Transport", sdbus::Variant(std::string("le"))}});
    return error.empty() ? Adapter("StartDiscovery") : error;
}

Objects Client::ManagedObjects() {
    Objects objects;
    auto proxy = sdbus::createProxy(*connection_, "org.bluez", "/");
    proxy->callMethod("GetManagedObjects")
        .onInterface("org.freedesktop.DBus.ObjectManager")
        .storeResultsTo(objects);
    return objects;
}

// A known device is not announced again; its signal strength shows that it is present.
bool Client::SeesDongle() {
    return Discover().empty() &&
           Await(kDevice, "RSSI", [](const sdbus::Variant* found) { return found != nullptr; });
}

void Client::ConnectDongle() {
    ASSERT_TRUE(SeesDongle());
    ASSERT_EQ(Adapter("StopDiscovery"), "");
    ASSERT_EQ(Device("Connect"), "") << ErrorText();
    ASSERT_TRUE(AwaitFlag("ServicesResolved", true));
    for (const auto& [path, interfaces] : ManagedObjects()) {
        const auto found = interfaces.find("org.bluez.GattCharacteristic1");
        if (found == interfaces.end()) continue;
        if (found->second.at("UUID").get<std::string>() != kCharacteristicUuid) continue;
        characteristic_ = path;
    }
    ASSERT_NE(characteristic_, "");
}

}  // namespace brennix::test
