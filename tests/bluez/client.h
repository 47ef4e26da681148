#pragma once

#include <gtest/gtest.h>
#include <sdbus-c++/sdbus-c++.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "conformance/framework/simulator.h"

namespace brennix::test {

inline constexpr const char* kAdapter = "/org/bluez/hci0";
inline constexpr const char* kDevice = "/org/bluez/hci0/dev_02_42_52_4E_58_01";
inline constexpr const char* kCharacteristicUuid = "34a242a7-5bc9-45d3-92e4-af6f9138ff00";

using Properties = std::map<std::string, sdbus::Variant>;
using Objects = std::map<sdbus::ObjectPath, std::map<std::string, Properties>>;
using Bytes = std::vector<std::uint8_t>;

// The service's own control channel.
class Service : public conformance::Simulator {
public:
    Service() : Simulator("BRENNIX_BLUEZ_CONTROL") {}
};

// A program that uses the simulated Linux Bluetooth service.
class Client {
public:
    Client();
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // The error's name; empty when the call succeeded.
    template <typename... Arguments>
    std::string Call(const std::string& path, const std::string& interface,
                     const std::string& method, Arguments... arguments) {
        try {
            auto proxy = sdbus::createProxy(*connection_, "org.bluez", path);
            proxy->callMethod(method).onInterface(interface).withArguments(arguments...);
            return {};
        } catch (const sdbus::Error& error) {
            error_ = error.getMessage();
            return error.getName();
        }
    }
    const std::string& ErrorText() const { return error_; }  // of the last failed call

    std::string Adapter(const std::string& method) {
        return Call(kAdapter, "org.bluez.Adapter1", method);
    }
    std::string Device(const std::string& method) {
        return Call(kDevice, "org.bluez.Device1", method);
    }
    std::string Characteristic(const std::string& method) {
        return Call(characteristic_, "org.bluez.GattCharacteristic1", method);
    }
    std::string Write(const Bytes& value, const std::string& type = "command");
    std::string Discover();  // filter and start
    bool SeesDongle();       // starts discovery and waits for the dongle
    // Discovers the dongle, connects to it and waits for its services.
    void ConnectDongle();
    Objects ManagedObjects();
    // Waits until `holds` returns true for the signalled value of a property; null: no value.
    bool Await(const std::string& path, const std::string& property,
               const std::function<bool(const sdbus::Variant*)>& holds);
    bool AwaitFlag(const std::string& property, bool value);
    // How often a property was signalled with exactly this value.
    std::size_t Signalled(const std::string& property, const Bytes& value);
    std::string CharacteristicPath() const { return characteristic_; }

private:
    void OnAdded(sdbus::Message& message);
    void OnChanged(sdbus::Message& message);

    std::unique_ptr<sdbus::IConnection> connection_;
    std::string error_;
    std::string characteristic_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::map<std::string, Properties> seen_;  // by path, as signalled
    std::vector<std::pair<std::string, Bytes>> byte_signals_;
};

}  // namespace brennix::test
