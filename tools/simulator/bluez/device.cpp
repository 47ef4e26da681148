#include "bluez/device.h"

#include <algorithm>
#include <cstdio>

#include "control/words.h"

namespace brennix {

namespace {

constexpr const char* kCharacteristic = "34a242a7-5bc9-45d3-92e4-af6f9138ff00";
constexpr const char* kAborted = "le-connection-abort-by-local";
constexpr std::uint16_t kMtuOverhead = 3;

std::string HandlePath(const std::string& parent, const char* kind, std::size_t handle) {
    char text[32];
    std::snprintf(text, sizeof text, "/%s%04zx", kind, handle);
    return parent + text;
}

// Replaces non-ASCII bytes by blanks and removes NUL bytes at the end.
std::string ShownName(const Bytes& name) {
    std::string text;
    for (const std::uint8_t byte : name)
        text.push_back(byte < 0x80 ? static_cast<char>(byte) : ' ');
    text.erase(std::min(text.size(), text.find_last_not_of('\0') + 1));
    return text;
}

std::string DashedAddress(std::string address) {
    std::replace(address.begin(), address.end(), ':', '-');
    return address;
}

std::vector<std::string> SplitList(std::string_view text) {
    std::vector<std::string> list;
    while (!text.empty() && text != "-") {
        const std::size_t end = std::min(text.find(','), text.size());
        list.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return list;
}

}  // namespace

std::string DevicePath(const std::string& adapter, std::string address) {
    std::replace(address.begin(), address.end(), ':', '_');
    return adapter + "/dev_" + address;
}

Device::Device(Host* host, const std::string& adapter, std::string address)
    : host_(host), address_(std::move(address)), path_(DevicePath(adapter, address_)) {
    object_ = std::make_unique<BusObject>(&host_->Connection(), path_, "org.bluez.Device1",
                                          DeviceMethods(),
                                          BusObject::Values{{"Adapter", sdbus::ObjectPath(adapter)},
                                                            {"Address", address_},
                                                            {"AddressType", std::string("public")},
                                                            {"Alias", DashedAddress(address_)},
                                                            {"Blocked", false},
                                                            {"Connected", false},
                                                            {"Paired", false},
                                                            {"ServicesResolved", false},
                                                            {"Trusted", false},
                                                            {"UUIDs", std::vector<std::string>{}}});
}

std::vector<BusObject::Method> Device::DeviceMethods() {
    return {
        {"Connect", "", "", [this](sdbus::MethodCall call) { Connect(std::move(call)); }},
        {"Disconnect", "", "", [this](sdbus::MethodCall call) { Disconnect(std::move(call)); }}};
}

std::vector<BusObject::Method> Device::CharacteristicMethods(const std::string& uuid) {
    if (uuid != kCharacteristic) return {};  // other characteristics are not used here
    const auto refuse = [this](const char* method) {
        return [this, method](sdbus::MethodCall call) {
            host_->OnCall(method, call);
            throw sdbus::Error("org.bluez.Error.NotSupported", "Operation is not supported");
        };
    };
    return {
        {"WriteValue", "aya{sv}", "",
         [this](sdbus::MethodCall call) { WriteValue(std::move(call)); }},
        {"StartNotify", "", "", [this](sdbus::MethodCall call) { StartNotify(std::move(call)); }},
        {"StopNotify", "", "", [this](sdbus::MethodCall call) { StopNotify(std::move(call)); }},
        {"AcquireWrite", "a{sv}", "hq", refuse("AcquireWrite")},
        {"AcquireNotify", "a{sv}", "hq", refuse("AcquireNotify")}};
}

void Device::Seen(std::int16_t rssi, const std::optional<Bytes>& name) {
    BusObject::Values values = {{"RSSI", rssi}};
    if (name) {
        values["Name"] = ShownName(*name);
        values["Alias"] = ShownName(*name);
    }
    object_->Set(values);
}

void Device::DiscoveryEnded() { object_->Remove("RSSI"); }

void Device::Connect(sdbus::MethodCall call) {
    host_->OnCall("Connect", call);
    const std::string client = call.getSender();
    if (host_->IsDiscovering(client)) host_->Violation("Connect while discovering");
    has_left_.erase(client);
    if (state_ == State::kConnected) return Answer(call);
    if (state_ == State::kConnecting) {
        throw sdbus::Error("org.bluez.Error.InProgress", "Operation already in progress");
    }
    state_ = State::kConnecting;
    owner_ = client;
    connect_ = std::move(call);
    host_->ToRadio("connect " + address_);
}

void Device::Disconnect(sdbus::MethodCall call) {
    host_->OnCall("Disconnect", call);
    const std::string client = call.getSender();
    if (state_ == State::kIdle) {
        throw sdbus::Error("org.bluez.Error.NotConnected", "Not Connected");
    }
    if (state_ == State::kConnected && sessions_.contains(client)) {
        host_->Violation("Disconnect without StopNotify");
    }
    has_left_.insert(client);
    disconnects_.push_back(std::move(call));
    host_->ToRadio("disconnect " + address_);
}

// A violation if the client disconnected itself. After a loss it may not know yet.
void Device::RequireConnection(const char* what, const sdbus::MethodCall& call) {
    host_->OnCall(what, call);
    if (has_left_.contains(call.getSender())) {
        host_->Violation(std::string(what) + " after Disconnect");
    }
    if (state_ != State::kConnected) throw sdbus::Error(kFailed, "Not connected");
}

void Device::WriteValue(sdbus::MethodCall call) {
    std::vector<std::uint8_t> value;
    std::map<std::string, sdbus::Variant> options;
    call >> value >> options;
    RequireConnection("WriteValue", call);
    const auto type = options.find("type");
    if (type == options.end() || type->second.get<std::string>() != "command") {
        host_->Violation("WriteValue that asks for a response");
    }
    if (value.size() > static_cast<std::size_t>(mtu_ - kMtuOverhead)) {
        throw sdbus::Error(kFailed, "Failed to initiate write");
    }
    writes_.push_back(std::move(call));
    host_->ToRadio("write " + address_ + " " + ToHex(value));
}

// A session from before a loss is still valid.
void Device::StartNotify(sdbus::MethodCall call) {
    RequireConnection("StartNotify", call);
    if (sessions_.contains(call.getSender()) && subscribed_) return Answer(call);
    if (!subscribes_.empty()) {
        throw sdbus::Error("org.bluez.Error.InProgress", "Operation already in progress");
    }
    subscribes_.push_back(std::move(call));
    host_->ToRadio("subscribe " + address_);
}

void Device::StopNotify(sdbus::MethodCall call) {
    host_->OnCall("StopNotify", call);
    if (sessions_.erase(call.getSender()) == 0) {
        throw sdbus::Error(kFailed, "No notify session started");
    }
    if (!subscribed_ || !sessions_.empty()) return Answer(call);
    unsubscribe_ = std::move(call);
    host_->ToRadio("unsubscribe " + address_);
}

void Device::OnLine(std::string_view command, std::string_view rest) {
    if (command == "notify") return OnNotify(TakeHex(&rest));
    if (command == "services") return OnServices(rest);
    if (command == "characteristics") return OnCharacteristics(rest);
    if (command == "refused") return OnRefused(rest);
    if (command == "lost") return Drop("Not connected");
    if (command == "disconnected") return OnDisconnected();
    if (command == "unsubscribed") return OnUnsubscribed();
    const std::uint32_t number = TakeNumber(&rest, "a number");
    if (command == "connected") return OnConnected(static_cast<std::uint16_t>(number));
    if (command == "subscribed") return OnSubscribed(number);
    if (command == "written") return OnWritten(number);
    throw UsageError("unknown line of the radio");
}

void Device::OnConnected(std::uint16_t mtu) {
    state_ = State::kConnected;
    mtu_ = mtu;
    object_->Set({{"Connected", true}});
    if (connect_) Answer(*std::exchange(connect_, std::nullopt));
    host_->ToRadio("services " + address_);
}

void Device::OnRefused(std::string_view why) {
    state_ = State::kIdle;
    const std::string text = why.starts_with("le-connection-") ? std::string(why) : kAborted;
    if (connect_) AnswerError(*std::exchange(connect_, std::nullopt), kFailed, text);
}

// Without services the connection is useless, so it ends.
void Device::OnServices(std::string_view rest) {
    if (TakeNumber(&rest, "a status") != 0) return host_->ToRadio("disconnect " + address_);
    const std::vector<std::string> uuids = SplitList(rest);
    const auto is_gone = [&](const std::string& uuid) {
        return std::find(uuids.begin(), uuids.end(), uuid) == uuids.end();
    };
    std::erase_if(characteristics_, [&](const Characteristic& characteristic) {
        return std::any_of(services_.begin(), services_.end(), [&](const Service& service) {
            return is_gone(service.uuid) && service.object->Path() == characteristic.service;
        });
    });
    std::erase_if(services_, [&](const Service& service) { return is_gone(service.uuid); });
    unlisted_services_ = uuids.size();
    for (const std::string& uuid : uuids) {
        FindOrAddService(uuid);
        host_->ToRadio("characteristics " + address_ + " " + uuid);
    }
}

void Device::OnCharacteristics(std::string_view rest) {
    const std::string uuid(TakeWord(&rest));
    if (TakeNumber(&rest, "a status") != 0) return host_->ToRadio("disconnect " + address_);
    const Service& service = FindOrAddService(uuid);
    const std::vector<std::string> found = SplitList(rest);
    std::erase_if(characteristics_, [&](const Characteristic& known) {
        return known.service == service.object->Path() &&
               std::find(found.begin(), found.end(), known.uuid) == found.end();
    });
    for (const std::string& characteristic : found)
        AddCharacteristic(service, characteristic);
    if (--unlisted_services_ == 0 && state_ == State::kConnected) Resolved();
}

Device::Service& Device::FindOrAddService(const std::string& uuid) {
    for (Service& service : services_)
        if (service.uuid == uuid) return service;
    const std::string path = HandlePath(path_, "service", 1 + 0x10 * services_.size());
    services_.push_back(
        {uuid,
         std::make_unique<BusObject>(
             &host_->Connection(), path, "org.bluez.GattService1", std::vector<BusObject::Method>{},
             BusObject::Values{
                 {"Device", sdbus::ObjectPath(path_)}, {"Primary", true}, {"UUID", uuid}})});
    return services_.back();
}

void Device::AddCharacteristic(const Service& service, const std::string& uuid) {
    for (const Characteristic& known : characteristics_)
        if (known.uuid == uuid && known.service == service.object->Path()) return;
    const std::string& parent = service.object->Path();
    const std::size_t handle = std::stoul(parent.substr(parent.size() - 4), nullptr, 16) + 1;
    const bool is_own = uuid == kCharacteristic;
    const std::vector<std::string> flags =
        is_own ? std::vector<std::string>{"write-without-response", "notify"}
               : std::vector<std::string>{"read"};
    BusObject::Values values = {{"Flags", flags},
                                {"Service", sdbus::ObjectPath(parent)},
                                {"UUID", uuid},
                                {"Value", std::vector<std::uint8_t>{}}};
    if (is_own) values["Notifying"] = false;
    characteristics_.push_back(
        {uuid, parent,
         std::make_unique<BusObject>(&host_->Connection(), HandlePath(parent, "char", handle),
                                     "org.bluez.GattCharacteristic1", CharacteristicMethods(uuid),
                                     std::move(values))});
}

Device::Characteristic* Device::Own() {
    const auto found =
        std::find_if(characteristics_.begin(), characteristics_.end(),
                     [](const Characteristic& entry) { return entry.uuid == kCharacteristic; });
    return found == characteristics_.end() ? nullptr : &*found;
}

void Device::SetMtu(std::optional<std::uint16_t> mtu) {
    for (const Characteristic& characteristic : characteristics_) {
        if (mtu) {
            characteristic.object->Set({{"MTU", *mtu}});
        } else {
            characteristic.object->Remove("MTU");
        }
    }
}

// Resumes the clients' sessions from before a loss.
void Device::Resolved() {
    SetMtu(mtu_);
    std::vector<std::string> uuids;
    for (const Service& service : services_)
        uuids.push_back(service.uuid);
    object_->Set({{"ServicesResolved", true}, {"UUIDs", uuids}});
    if (!sessions_.empty() && Own() != nullptr) host_->ToRadio("subscribe " + address_);
}

void Device::OnSubscribed(std::uint32_t status) {
    subscribed_ = status == 0;
    if (subscribed_ && Own() != nullptr) Own()->object->Set({{"Notifying", true}});
    for (const sdbus::MethodCall& call : std::exchange(subscribes_, {})) {
        if (status != 0) {
            const char* const text = status == 3 ? "Operation failed with ATT error: 0x05"
                                                 : "Operation failed with ATT error: 0x0e";
            AnswerError(call, kFailed, text);
            continue;
        }
        sessions_.insert(call.getSender());
        Answer(call);
    }
}

void Device::OnUnsubscribed() {
    subscribed_ = false;
    if (Own() != nullptr) Own()->object->Set({{"Notifying", false}});
    if (unsubscribe_) Answer(*std::exchange(unsubscribe_, std::nullopt));
}

void Device::OnWritten(std::uint32_t status) {
    if (writes_.empty()) return;  // the caller has already been told that the connection is gone
    const sdbus::MethodCall call = std::move(writes_.front());
    writes_.pop_front();
    if (status == 0) return Answer(call);
    AnswerError(call, kFailed, "Failed to initiate write");
}

void Device::OnNotify(const Bytes& value) {
    if (Own() != nullptr) Own()->object->Set({{"Value", value}});
}

void Device::OnDisconnected() {
    Drop("Not connected");
    for (const sdbus::MethodCall& call : std::exchange(disconnects_, {}))
        Answer(call);
}

void Device::Drop(const std::string& why) {
    const bool was_connected = state_ == State::kConnected;
    state_ = State::kIdle;
    subscribed_ = false;
    if (connect_) AnswerError(*std::exchange(connect_, std::nullopt), kFailed, kAborted);
    for (const sdbus::MethodCall& call : std::exchange(subscribes_, {}))
        AnswerError(call, kFailed, why);
    for (const sdbus::MethodCall& call : std::exchange(writes_, {}))
        AnswerError(call, kFailed, why);
    if (unsubscribe_) AnswerError(*std::exchange(unsubscribe_, std::nullopt), kFailed, why);
    if (!was_connected) return;
    SetMtu(std::nullopt);
    if (Own() != nullptr) Own()->object->Set({{"Notifying", false}});
    object_->Set({{"Connected", false}, {"ServicesResolved", false}});
}

// BlueZ keeps the link, so nobody else can reach the dongle.
void Device::ClientLeft(const std::string& client) {
    sessions_.erase(client);
    const bool has_left = has_left_.erase(client) != 0;
    if (has_left || owner_ != client || state_ == State::kIdle) return;
    host_->Violation("left the bus with " + address_ + " connected");
    host_->ToRadio("disconnect " + address_);
}

}  // namespace brennix
