#include "transport/ble/bluez_device.h"

#include <strings.h>

#include <atomic>
#include <utility>

#include "support/log.h"
#include "transport/ble/ble_text.h"
#include "transport/ble/bluez_limits.h"
#include "transport/ble/bluez_objects.h"

namespace tarvik {
namespace {

using Cancel = BluezBus::Cancel;

constexpr char kProperties[] = "org.freedesktop.DBus.Properties";
constexpr std::uint16_t kWriteHeader = 3;  // bytes of the MTU that a write command needs itself

std::string TextOf(const BleUuid& uuid) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kDigits[uuid[i] >> 4];
        text += kDigits[uuid[i] & 15];
    }
    return text;
}

bool IsUuid(const BluezObject& object, const std::string& uuid) {
    return object.properties.uuid &&
           ::strcasecmp(object.properties.uuid->c_str(), uuid.c_str()) == 0;
}

BleStatus StatusOf(const BluezError& error) {
    if (error.IsRefused()) return BleStatus::kAccessDenied;
    if (error.Is("NotConnected") || error.IsObjectGone()) return BleStatus::kUnreachable;
    return BleStatus::kProtocolError;
}

void LogFailure(const char* what, const BleError& error) {
    Log(kLogTrace, "[BLE] %s failed: %s", what, error.message().c_str());
}

class BluezBleDevice final : public BleDevice, private BluezListener {
public:
    BluezBleDevice(std::shared_ptr<BluezBus> bus, std::shared_ptr<BluezOpenDevices> open_devices,
                   std::uint64_t address, std::string path)
        : bus_(std::move(bus)),
          open_devices_(std::move(open_devices)),
          address_(address),
          path_(std::move(path)),
          opening_(open_devices_->Add(address_)) {
        bus_->Add(this);
    }
    ~BluezBleDevice() override;

    // False: not reachable.
    bool Connect();

    BleStatus DiscoverServices() override;
    bool SelectService(const BleUuid& uuid) override;
    BleStatus DiscoverCharacteristics() override;
    bool SelectCharacteristic(const BleUuid& uuid) override;
    BleStatus Subscribe(Handler& handler) override;
    BleStatus Write(std::span<const std::uint8_t> value) override;

private:
    bool TryConnect(bool* aborted);
    void AskForState();
    void UpdateState(const BluezProperties& properties);  // on the bus's thread
    void UpdateFlag(std::atomic<bool>* flag, bool value);
    void SetHandler(Handler* handler);
    void ReportLost();
    void Disconnect();
    void CallQuietly(const std::string& path, const char* interface, const char* method);

    void ObjectRemoved(const std::string& path, const std::string& interface) override;
    void Changed(const BluezObject& object) override;
    void ServiceGone() override { ReportLost(); }

    const std::shared_ptr<BluezBus> bus_;
    const std::shared_ptr<BluezOpenDevices> open_devices_;
    const std::uint64_t address_;
    const std::string path_;
    const std::uint64_t opening_;
    std::atomic<bool> connected_{false};
    std::atomic<bool> resolved_{false};
    std::atomic<bool> lost_{false};

    std::vector<BluezObject> objects_;
    std::string service_;
    std::string characteristic_;
    bool notifying_ = false;
    std::atomic<std::uint16_t> mtu_{0};  // of the link; 0: not known

    OsLock handler_lock_;  // held while the handler runs; never while the bus is called
    Handler* handler_ = nullptr;
};

BluezBleDevice::~BluezBleDevice() {
    SetHandler(nullptr);
    if (open_devices_->IsLatest(address_, opening_)) Disconnect();
    bus_->Remove(this);
    open_devices_->Remove(address_, opening_);
}

// Without these calls BlueZ would renew the subscription and the connection by itself.
void BluezBleDevice::Disconnect() {
    if (notifying_) CallQuietly(characteristic_, kBluezCharacteristic, "StopNotify");
    CallQuietly(path_, kBluezDevice, "Disconnect");
}

// If BlueZ does not answer, only the first call waits for it, not every call of every dongle.
void BluezBleDevice::CallQuietly(const std::string& path, const char* interface,
                                 const char* method) {
    try {
        const BluezLimits& limits = GetBluezLimits();
        bus_->Call(
            {path, interface, method, bus_->answers() ? limits.close_ms : limits.close_mute_ms});
    } catch (const BleError& error) {
        LogFailure(method, error);
    } catch (...) {  // memory is out
        Log(kLogTrace, "[BLE] %s failed: %s", method, BleErrorText().text);
    }
}

// ---------------------------------------------------------------- signals

void BluezBleDevice::UpdateFlag(std::atomic<bool>* flag, bool value) {
    *flag = value;
    bus_->WakeWaiters();
}

void BluezBleDevice::UpdateState(const BluezProperties& properties) {
    if (properties.services_resolved) UpdateFlag(&resolved_, *properties.services_resolved);
    if (!properties.connected) return;
    const bool was_connected = connected_;
    UpdateFlag(&connected_, *properties.connected);
    if (was_connected && !*properties.connected) ReportLost();
}

void BluezBleDevice::SetHandler(Handler* handler) {
    const LockGuard hold(handler_lock_);
    handler_ = handler;
}

void BluezBleDevice::ReportLost() {
    const LockGuard hold(handler_lock_);
    if (lost_.exchange(true)) return;
    bus_->WakeWaiters();
    if (handler_ != nullptr) handler_->Lost();
}

void BluezBleDevice::ObjectRemoved(const std::string& path, const std::string& interface) {
    if (path == path_ && interface == kBluezDevice) ReportLost();
}

void BluezBleDevice::Changed(const BluezObject& object) {
    if (object.path == path_ && object.interface == kBluezDevice) {
        UpdateState(object.properties);
        return;
    }
    const LockGuard hold(handler_lock_);
    if (handler_ == nullptr || object.path != characteristic_) return;
    if (object.properties.mtu) mtu_ = *object.properties.mtu;
    if (object.properties.value) handler_->Notified(*object.properties.value);
}

// ---------------------------------------------------------------- connecting

bool BluezBleDevice::TryConnect(bool* aborted) {
    *aborted = false;
    try {
        bus_->Call({path_, kBluezDevice, "Connect", GetBluezLimits().connect_ms, Cancel::kObeyed});
    } catch (const BluezError& error) {
        if (error.Is("AlreadyConnected")) return true;
        if (error.IsRefused() || error.Is("NotReady")) throw;
        LogFailure("Connect", error);
        *aborted = error.message().find("abort") != std::string::npos;
        return false;
    }
    return true;
}

// The bus's thread handles the answer in its order among the signals.
void BluezBleDevice::AskForState() {
    bus_->Call(
        {path_, kProperties, "GetAll", GetBluezLimits().connected_ms, Cancel::kObeyed},
        [](sdbus::MethodCall& call) { call << std::string(kBluezDevice); },
        [this](sdbus::MethodReply& reply) {
            BluezPropertyMap properties;
            reply >> properties;
            UpdateState(BluezProperties(properties));
        });
}

// BlueZ aborts an attempt that comes too soon after its own scan, or that fails briefly: a second
// attempt follows.
bool BluezBleDevice::Connect() {
    bool aborted = false;
    if (!TryConnect(&aborted) && !(aborted && TryConnect(&aborted))) return false;
    // Success of the call alone does not mean that there is a connection.
    AskForState();
    return bus_->Await([this] { return connected_ || lost_; }, GetBluezLimits().connected_ms,
                       Cancel::kObeyed) &&
           !lost_;
}

BleStatus BluezBleDevice::DiscoverServices() {
    const bool resolved = bus_->Await([this] { return resolved_ || lost_ || !connected_; },
                                      GetBluezLimits().resolve_ms, Cancel::kObeyed);
    if (!resolved || lost_ || !connected_) return BleStatus::kUnreachable;
    objects_ = bus_->Objects(Cancel::kObeyed);
    return BleStatus::kSuccess;
}

bool BluezBleDevice::SelectService(const BleUuid& uuid) {
    const std::string text = TextOf(uuid);
    for (const BluezObject& object : objects_) {
        if (object.interface != kBluezService || !IsBelow(object.path, path_)) continue;
        if (!IsUuid(object, text)) continue;
        service_ = object.path;
        return true;
    }
    return false;
}

// BlueZ has discovered the characteristics together with the services.
BleStatus BluezBleDevice::DiscoverCharacteristics() {
    return lost_ ? BleStatus::kUnreachable : BleStatus::kSuccess;
}

bool BluezBleDevice::SelectCharacteristic(const BleUuid& uuid) {
    const std::string text = TextOf(uuid);
    for (const BluezObject& object : objects_) {
        if (object.interface != kBluezCharacteristic) continue;
        if (object.properties.service != service_ || !IsUuid(object, text)) continue;
        const LockGuard hold(handler_lock_);
        characteristic_ = object.path;
        mtu_ = object.properties.mtu.value_or(0);
        return true;
    }
    return false;
}

BleStatus BluezBleDevice::Subscribe(Handler& handler) {
    SetHandler(&handler);
    try {
        bus_->Call({characteristic_, kBluezCharacteristic, "StartNotify",
                    GetBluezLimits().subscribe_ms, Cancel::kObeyed});
        notifying_ = true;
    } catch (const BluezError& error) {
        SetHandler(nullptr);
        LogFailure("StartNotify", error);
        return StatusOf(error);
    }
    // A loss before the handler was set has not been reported.
    return lost_ ? BleStatus::kUnreachable : BleStatus::kSuccess;
}

// ---------------------------------------------------------------- sending

BleStatus BluezBleDevice::Write(std::span<const std::uint8_t> value) {
    if (lost_) return BleStatus::kUnreachable;
    const std::uint16_t mtu = mtu_;
    if (mtu > 0 && value.size() + kWriteHeader > mtu) {
        Log(kLogTrace, "[BLE] %u bytes are too many for the link, whose MTU is %u",
            static_cast<unsigned>(value.size()), mtu);
        return BleStatus::kProtocolError;
    }
    try {
        bus_->Call({characteristic_, kBluezCharacteristic, "WriteValue", GetBluezLimits().write_ms},
                   [&value](sdbus::MethodCall& call) {
                       call << std::vector<std::uint8_t>(value.begin(), value.end())
                            << std::map<std::string, sdbus::Variant>{
                                   {"type", sdbus::Variant(std::string("command"))}};
                   });
    } catch (const BluezError& error) {
        LogFailure("WriteValue", error);
        return StatusOf(error);
    }
    return BleStatus::kSuccess;
}

}  // namespace

std::unique_ptr<BleDevice> OpenBluezDevice(const std::shared_ptr<BluezBus>& bus,
                                           const std::shared_ptr<BluezOpenDevices>& open_devices,
                                           std::uint64_t address) {
    const std::vector<BluezObject> objects = bus->Objects(Cancel::kObeyed);
    const std::string adapter = PoweredAdapter(objects);
    for (const BluezObject& object : objects) {
        if (object.interface != kBluezDevice || !object.properties.address) continue;
        if (!IsBelow(object.path, adapter)) continue;
        if (BluezAddress(*object.properties.address) != address) continue;
        auto device = std::make_unique<BluezBleDevice>(bus, open_devices, address, object.path);
        if (!device->Connect()) return nullptr;
        return device;
    }
    return nullptr;
}

}  // namespace tarvik
