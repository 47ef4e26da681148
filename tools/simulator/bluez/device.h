// A dongle as BlueZ presents it: Device1 and the objects of its services and characteristics.

#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "bluez/bus_object.h"
#include "protocol/wire.h"

namespace brennix {

// The device's path, below its adapter's.
std::string DevicePath(const std::string& adapter, std::string address);

class Device {
public:
    // What a device needs from the service.
    class Host {
    public:
        virtual sdbus::IConnection& Connection() = 0;
        virtual void ToRadio(const std::string& line) = 0;
        virtual void Violation(const std::string& text) = 0;
        virtual bool IsDiscovering(const std::string& client) = 0;
        // Called first for every call. Throws the error planned for this method, if any.
        virtual void OnCall(const char* method, const sdbus::MethodCall& call) = 0;

    protected:
        ~Host() = default;
    };

    Device(Host* host, const std::string& adapter, std::string address);

    const std::string& Path() const { return path_; }
    bool IsConnected() const { return state_ == State::kConnected; }

    // During a discovery. An advertisement without a name keeps the last known one.
    void Seen(std::int16_t rssi, const std::optional<Bytes>& name);
    void DiscoveryEnded();
    bool HasStrength() const { return object_->Find("RSSI") != nullptr; }
    // A line from the radio about this device, without its address.
    void OnLine(std::string_view command, std::string_view rest);
    // The adapter is off: nothing is connected any more.
    void Drop(const std::string& why);
    void ClientLeft(const std::string& client);

private:
    enum class State { kIdle, kConnecting, kConnected };
    struct Characteristic {
        std::string uuid;
        std::string service;  // path
        std::unique_ptr<BusObject> object;
    };
    struct Service {
        std::string uuid;
        std::unique_ptr<BusObject> object;
    };

    std::vector<BusObject::Method> DeviceMethods();
    std::vector<BusObject::Method> CharacteristicMethods(const std::string& uuid);
    void Connect(sdbus::MethodCall call);
    void Disconnect(sdbus::MethodCall call);
    void WriteValue(sdbus::MethodCall call);
    void StartNotify(sdbus::MethodCall call);
    void StopNotify(sdbus::MethodCall call);

    void OnConnected(std::uint16_t mtu);
    void OnRefused(std::string_view why);
    void OnServices(std::string_view rest);
    void OnCharacteristics(std::string_view rest);
    void OnSubscribed(std::uint32_t status);
    void OnUnsubscribed();
    void OnWritten(std::uint32_t status);
    void OnNotify(const Bytes& value);
    void OnDisconnected();

    Service& FindOrAddService(const std::string& uuid);
    void AddCharacteristic(const Service& service, const std::string& uuid);
    void SetMtu(std::optional<std::uint16_t> mtu);
    void Resolved();
    Characteristic* Own();
    void RequireConnection(const char* what, const sdbus::MethodCall& call);

    Host* host_;
    const std::string address_;
    const std::string path_;
    std::unique_ptr<BusObject> object_;
    std::vector<Service> services_;  // stay known after the connection ends
    std::vector<Characteristic> characteristics_;
    State state_ = State::kIdle;
    std::string owner_;               // who called Connect
    std::set<std::string> has_left_;  // clients that called Disconnect since
    std::uint16_t mtu_ = 0;
    std::size_t unlisted_services_ =
        0;                     // number of services whose characteristics are still awaited
    bool subscribed_ = false;  // the dongle notifies
    std::set<std::string>
        sessions_;  // clients that receive notifications; survive a loss of the link
    std::optional<sdbus::MethodCall> connect_;
    std::vector<sdbus::MethodCall> disconnects_;
    std::vector<sdbus::MethodCall> subscribes_;
    std::optional<sdbus::MethodCall> unsubscribe_;
    std::deque<sdbus::MethodCall> writes_;
};

}  // namespace brennix
