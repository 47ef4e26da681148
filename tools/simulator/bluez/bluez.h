// A stand-in for the Linux Bluetooth service: the name org.bluez on a message bus, with one adapter
// whose radio is brennix-radio. It behaves like the service as far as a program can observe, and
// reports what programs do wrong.

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "bluez/bus.h"
#include "bluez/device.h"
#include "bluez/second_adapter.h"
#include "sockets/line_socket.h"

namespace brennix {

class Bluez : private Device::Host {
public:
    // `radio`: the port of brennix-radio. Throws std::exception.
    Bluez(EventLoop* loop, std::string bus_address, std::uint16_t radio);
    ~Bluez();
    Bluez(const Bluez&) = delete;
    Bluez& operator=(const Bluez&) = delete;

    // Stop ends the service, with its connections and everything it knew about devices. Start
    // starts it again, optionally with a second adapter; a second adapter that is off comes first.
    struct Second {
        bool powered;
        std::string address;  // of a device that this adapter knows
    };
    void Stop();
    void Start(const std::optional<Second>& second = std::nullopt);
    bool IsRunning() const { return bus_ != nullptr; }
    // While mute, the service exists but does nothing.
    void SetMute(bool mute);

    // While on, a device is reported once in a discovery, whoever starts and stops one meanwhile.
    void SetReportOnce(bool once) { report_once_ = once; }

    // Lets the next `count` calls of a method end with this error.
    void Fail(std::uint32_t count, const std::string& method, const std::string& name,
              const std::string& text);
    // Number of programs that called something and are still on the bus.
    std::size_t Clients() const { return clients_.size(); }
    const std::string& AdapterState() const { return adapter_state_; }
    void SetClientsHandler(std::function<void()> handler) { clients_changed_ = std::move(handler); }

private:
    struct PlannedError {
        std::uint32_t count;
        std::string name;
        std::string text;
    };

    void OnLine(std::string_view line);
    void SetAdapter(std::string_view state);
    void AddAdapter(bool powered);
    void OnAdvertisement(const std::string& address, std::string_view rest);
    void OnClientLeft(const std::string& client);
    Device& FindOrAddDevice(const std::string& address);

    void SetDiscoveryFilter(sdbus::MethodCall call);
    void StartDiscovery(sdbus::MethodCall call);
    void StopDiscovery(sdbus::MethodCall call);
    void RemoveDevice(sdbus::MethodCall call);
    void EndDiscovery(const std::string& client);
    void OnScanning(std::string_view rest);

    sdbus::IConnection& Connection() override { return bus_->Connection(); }
    void ToRadio(const std::string& line) override { radio_.Send(line); }
    void Violation(const std::string& text) override;
    bool IsDiscovering(const std::string& client) override { return discovering_.contains(client); }
    void OnCall(const char* method, const sdbus::MethodCall& call) override;

    EventLoop* loop_;
    const std::string bus_address_;
    LineSocket radio_;
    std::unique_ptr<Bus> bus_;
    std::unique_ptr<SecondAdapter> second_;
    const char* adapter_path_ = "";
    std::string adapter_state_ = "absent";
    std::unique_ptr<BusObject> adapter_;
    std::map<std::string, std::unique_ptr<Device>> devices_;  // by address
    bool report_once_ = false;
    std::set<std::string> clients_;
    std::set<std::string> filters_;          // clients that asked for Bluetooth LE
    std::set<std::string> discovering_;      // clients
    std::vector<sdbus::MethodCall> starts_;  // not answered by the radio yet
    std::multimap<std::string, PlannedError> planned_;
    std::function<void()> clients_changed_;
};

}  // namespace brennix
