#include "bluez/bluez.h"

#include <cstdio>
#include <optional>

#include "control/words.h"

namespace brennix {

namespace {

constexpr const char* kName = "org.bluez";
constexpr const char* kFirstPath = "/org/bluez/hci0";
constexpr const char* kSecondPath = "/org/bluez/hci1";
constexpr const char* kNotReady = "org.bluez.Error.NotReady";

}  // namespace

Bluez::Bluez(EventLoop* loop, std::string bus_address, std::uint16_t radio)
    : loop_(loop),
      bus_address_(std::move(bus_address)),
      radio_(loop, ConnectToPort(radio),
             {.received = [this](std::string_view line) { OnLine(line); },
              .ended = [this] { loop_->Stop(); }}) {
    Start();
}

Bluez::~Bluez() = default;

void Bluez::Start(const std::optional<Second>& second) {
    if (bus_) return;
    bus_ = std::make_unique<Bus>(loop_, bus_address_);
    bus_->SetLeaveHandler([this](const std::string& name) { OnClientLeft(name); });
    bus_->Connection().addObjectManager("/", sdbus::floating_slot);
    const bool is_first = !second || second->powered;
    adapter_path_ = is_first ? kFirstPath : kSecondPath;
    if (second) {
        second_ = std::make_unique<SecondAdapter>(&bus_->Connection(),
                                                  is_first ? kSecondPath : kFirstPath,
                                                  second->powered, second->address);
    }
    SetAdapter(adapter_state_);
    bus_->Connection().requestName(kName);
    bus_->Pump();
}

void Bluez::Stop() {
    if (!bus_) return;
    if (!discovering_.empty()) ToRadio("scan off");
    for (const auto& [address, device] : devices_) {
        if (device->IsConnected()) ToRadio("disconnect " + address);
    }
    bus_->Connection().releaseName(kName);
    devices_.clear();
    adapter_.reset();
    second_.reset();
    clients_.clear();
    filters_.clear();
    discovering_.clear();
    starts_.clear();
    bus_->Pump();
    bus_.reset();
}

void Bluez::SetMute(bool mute) {
    if (bus_) bus_->SetMute(mute);
}

void Bluez::Fail(std::uint32_t count, const std::string& method, const std::string& name,
                 const std::string& text) {
    planned_.insert({method, {count, name, text}});
}

void Bluez::OnCall(const char* method, const sdbus::MethodCall& call) {
    clients_.insert(call.getSender());
    const auto found = planned_.find(method);
    if (found == planned_.end()) return;
    const sdbus::Error error(found->second.name, found->second.text);
    if (--found->second.count == 0) planned_.erase(found);
    throw error;
}

void Bluez::Violation(const std::string& text) {
    std::fprintf(stderr, "brennix-bluez: violation: %s\n", text.c_str());
    ToRadio("violation bluez: " + text);
}

void Bluez::OnClientLeft(const std::string& client) {
    if (clients_.erase(client) == 0) return;
    if (IsDiscovering(client)) Violation("left the bus while discovering");
    EndDiscovery(client);
    filters_.erase(client);
    for (const auto& [address, device] : devices_)
        device->ClientLeft(client);
    if (clients_changed_) clients_changed_();
}

void Bluez::OnLine(std::string_view line) {
    std::string_view rest = line;
    const std::string_view command = TakeWord(&rest);
    if (command == "adapter") {
        SetAdapter(rest);
    } else if (!bus_) {
        return;  // a late line for a service that has ended
    } else if (command == "scanning") {
        OnScanning(rest);
    } else {
        const std::string address(TakeWord(&rest));
        if (command == "advertise") {
            OnAdvertisement(address, rest);
        } else if (const auto found = devices_.find(address); found != devices_.end()) {
            found->second->OnLine(command, rest);
        }
    }
    if (bus_) bus_->Pump();
}

void Bluez::SetAdapter(std::string_view state) {
    adapter_state_ = state;
    if (!bus_) return;
    const bool powered = state == "on";
    if (!powered) {
        discovering_.clear();
        for (const auto& [address, device] : devices_)
            device->Drop("Not connected");
    }
    if (state == "absent") {
        devices_.clear();
        adapter_.reset();
    } else if (!adapter_) {
        AddAdapter(powered);
    } else {
        adapter_->Set({{"Powered", powered}, {"Discovering", false}});
    }
}

void Bluez::AddAdapter(bool powered) {
    const auto method = [this](void (Bluez::*run)(sdbus::MethodCall)) {
        return [this, run](sdbus::MethodCall call) { (this->*run)(std::move(call)); };
    };
    adapter_ = std::make_unique<BusObject>(
        &bus_->Connection(), adapter_path_, "org.bluez.Adapter1",
        std::vector<BusObject::Method>{
            {"SetDiscoveryFilter", "a{sv}", "", method(&Bluez::SetDiscoveryFilter)},
            {"StartDiscovery", "", "", method(&Bluez::StartDiscovery)},
            {"StopDiscovery", "", "", method(&Bluez::StopDiscovery)},
            {"RemoveDevice", "o", "", method(&Bluez::RemoveDevice)}},
        BusObject::Values{{"Address", std::string("02:00:00:00:00:FF")},
                          {"Alias", std::string("desk")},
                          {"Discovering", false},
                          {"Name", std::string("desk")},
                          {"Powered", powered},
                          {"UUIDs", std::vector<std::string>{}}});
}

void Bluez::SetDiscoveryFilter(sdbus::MethodCall call) {
    OnCall("SetDiscoveryFilter", call);
    std::map<std::string, sdbus::Variant> filter;
    call >> filter;
    const auto transport = filter.find("Transport");
    if (transport != filter.end() && !transport->second.containsValueOfType<std::string>()) {
        throw sdbus::Error("org.bluez.Error.InvalidArguments", "Invalid arguments in method call");
    }
    filters_.erase(call.getSender());
    if (transport != filter.end() && transport->second.get<std::string>() == "le") {
        filters_.insert(call.getSender());
    }
    Answer(call);
}

void Bluez::StartDiscovery(sdbus::MethodCall call) {
    OnCall("StartDiscovery", call);
    if (adapter_state_ != "on") throw sdbus::Error(kNotReady, "Resource Not Ready");
    const std::string client = call.getSender();
    if (!filters_.contains(client)) Violation("StartDiscovery without a filter for Bluetooth LE");
    if (IsDiscovering(client)) {
        throw sdbus::Error("org.bluez.Error.InProgress", "Operation already in progress");
    }
    starts_.push_back(std::move(call));
    ToRadio("scan on");
}

void Bluez::OnScanning(std::string_view rest) {
    const std::string_view state = TakeWord(&rest);
    if (state == "off") return;
    for (const sdbus::MethodCall& call : std::exchange(starts_, {})) {
        if (state == "refused") {
            AnswerError(call, kNotReady, "Resource Not Ready");
            continue;
        }
        discovering_.insert(call.getSender());
        Answer(call);
    }
    if (adapter_) adapter_->Set({{"Discovering", !discovering_.empty()}});
}

void Bluez::StopDiscovery(sdbus::MethodCall call) {
    OnCall("StopDiscovery", call);
    if (adapter_state_ != "on") throw sdbus::Error(kNotReady, "Resource Not Ready");
    if (!IsDiscovering(call.getSender())) {
        throw sdbus::Error(kFailed, "No discovery started");
    }
    EndDiscovery(call.getSender());
    Answer(call);
}

void Bluez::EndDiscovery(const std::string& client) {
    if (discovering_.erase(client) == 0 || !discovering_.empty()) return;
    ToRadio("scan off");
    if (adapter_) adapter_->Set({{"Discovering", false}});
    for (const auto& [address, device] : devices_)
        device->DiscoveryEnded();
}

void Bluez::RemoveDevice(sdbus::MethodCall call) {
    OnCall("RemoveDevice", call);
    sdbus::ObjectPath path;
    call >> path;
    for (const auto& [address, device] : devices_) {
        if (device->Path() != path) continue;
        if (device->IsConnected()) ToRadio("disconnect " + address);
        devices_.erase(address);
        return Answer(call);
    }
    throw sdbus::Error("org.bluez.Error.DoesNotExist", "Does Not Exist");
}

Device& Bluez::FindOrAddDevice(const std::string& address) {
    std::unique_ptr<Device>& device = devices_[address];
    Device::Host* const host = this;
    if (!device) device = std::make_unique<Device>(host, adapter_path_, address);
    return *device;
}

// "RSSI HEX", HEX being "-" without a name.
void Bluez::OnAdvertisement(const std::string& address, std::string_view rest) {
    if (discovering_.empty() || !adapter_) return;  // was on its way when the scan ended
    const int rssi = std::stoi(std::string(TakeWord(&rest)));
    std::optional<Bytes> name;
    if (rest != "-") name = TakeHex(&rest);
    Device& device = FindOrAddDevice(address);
    if (report_once_ && device.HasStrength()) return;
    device.Seen(static_cast<std::int16_t>(rssi), name);
    if (second_) second_->Hear();
}

}  // namespace brennix
