#include "transport/ble/bluez_scan.h"

#include <map>
#include <utility>

#include "support/log.h"
#include "transport/ble/ble_text.h"
#include "transport/ble/bluez_limits.h"
#include "transport/ble/bluez_objects.h"

namespace tarvik {
namespace {

constexpr std::int32_t kStarted = 1;
constexpr std::int32_t kStopped = 3;
constexpr std::int16_t kUnknownRssi = 127;  // Bluetooth's own value for "not known"

// Discovery through BlueZ. BlueZ keeps objects of devices that it has seen before: a device counts
// as present only if its signal strength is signalled while this scan runs.
class BluezScan final : public BleScan, private BluezListener {
public:
    BluezScan(std::shared_ptr<BluezBus> bus, std::shared_ptr<BluezOpenDevices> open_devices,
              Handler& handler)
        : bus_(std::move(bus)), open_devices_(std::move(open_devices)), handler_(handler) {}
    ~BluezScan() override;

    void Start() override;
    std::int32_t Status() override { return started_ ? kStarted : kStopped; }
    void Stop() override;

private:
    struct Seen {
        std::optional<std::uint64_t> address;
        std::optional<std::string> name;
        std::optional<std::int16_t> rssi;  // in this scan
    };

    void StartDiscovery();
    void ReadKnownObjects(const std::vector<BluezObject>& objects);
    void ReadKnownDevice(const BluezProperties& properties, Seen* device);
    void Advertise(const std::string& path);

    void ObjectAdded(const BluezObject& object) override;
    void Changed(const BluezObject& object) override;
    void ServiceGone() override;

    const std::shared_ptr<BluezBus> bus_;
    const std::shared_ptr<BluezOpenDevices> open_devices_;
    Handler& handler_;
    bool started_ = false;

    OsLock lock_;  // guards everything below; held for the handler, never for calls of the bus
    std::string adapter_;  // the scanning one; empty until it is known. Only Start changes it
    bool service_gone_ = false;
    std::map<std::string, Seen> devices_;  // by path
};

BluezScan::~BluezScan() {
    bus_->Remove(this);
    try {
        Stop();
    } catch (...) {
        Log(kLogTrace, "[BLE] Discovery did not end as it should: %s", BleErrorText().text);
    }
}

// Listens to signals before it reads the objects, so that no signal between the two is missed.
void BluezScan::Start() {
    bus_->Add(this);
    ReadKnownObjects(bus_->Objects());
    started_ = true;
    StartDiscovery();
}

void BluezScan::StartDiscovery() {
    bus_->Call({adapter_, kBluezAdapter, "SetDiscoveryFilter", GetBluezLimits().discovery_ms},
               [](sdbus::MethodCall& call) {
                   call << std::map<std::string, sdbus::Variant>{
                       {"Transport", sdbus::Variant(std::string("le"))},
                       {"DuplicateData", sdbus::Variant(true)}};
               });
    try {
        bus_->Call({adapter_, kBluezAdapter, "StartDiscovery", GetBluezLimits().discovery_ms});
    } catch (const BluezError& error) {
        if (!error.Is("InProgress")) throw;  // an earlier session was not ended; use that one
    }
}

void BluezScan::Stop() {
    if (!std::exchange(started_, false)) return;
    bus_->Remove(this);
    bus_->Call({adapter_, kBluezAdapter, "StopDiscovery", GetBluezLimits().discovery_ms});
    const LockGuard hold(lock_);
    if (service_gone_) throw BleError("the Bluetooth service has gone during the scan");
}

// Merges what BlueZ knew before the scan with what was signalled meanwhile.
void BluezScan::ReadKnownObjects(const std::vector<BluezObject>& objects) {
    const LockGuard hold(lock_);
    adapter_ = PoweredAdapter(objects);
    for (const BluezObject& object : objects) {
        if (object.interface == kBluezDevice)
            ReadKnownDevice(object.properties, &devices_[object.path]);
    }
    for (const auto& [path, device] : devices_)
        Advertise(path);
}

// Called under the lock. A signal is never older than what BlueZ returned. A signal strength from
// before the scan does not count, except for a dongle that BlueZ keeps connected: it does not
// advertise, so a dongle that an earlier process left connected would never be found again.
void BluezScan::ReadKnownDevice(const BluezProperties& properties, Seen* device) {
    if (properties.address) device->address = BluezAddress(*properties.address);
    if (!device->name) device->name = properties.name;
    if (!properties.connected.value_or(false) || !device->address || device->rssi) return;
    if (open_devices_->Contains(*device->address)) return;
    device->rssi = properties.rssi.value_or(kUnknownRssi);
}

// Called under the lock.
void BluezScan::Advertise(const std::string& path) {
    const Seen& device = devices_[path];
    if (!device.address || !device.rssi) return;
    if (adapter_.empty() || !IsBelow(path, adapter_)) return;
    const std::string name = device.name.value_or("");
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(name.data());
    handler_.Advertised({*device.address, *device.rssi, {bytes, name.size()}});
}

void BluezScan::ObjectAdded(const BluezObject& object) { Changed(object); }

void BluezScan::Changed(const BluezObject& object) {
    if (object.interface != kBluezDevice) return;
    const LockGuard hold(lock_);
    const BluezProperties& properties = object.properties;
    Seen& seen = devices_[object.path];
    if (properties.address) seen.address = BluezAddress(*properties.address);
    if (properties.name) seen.name = properties.name;
    if (properties.rssi) seen.rssi = properties.rssi;
    // The name may come after the signal strength, in another signal.
    if (properties.rssi || properties.name) Advertise(object.path);
}

void BluezScan::ServiceGone() {
    const LockGuard hold(lock_);
    service_gone_ = true;
}

}  // namespace

std::unique_ptr<BleScan> CreateBluezScan(std::shared_ptr<BluezBus> bus,
                                         std::shared_ptr<BluezOpenDevices> open_devices,
                                         BleScan::Handler& handler) {
    return std::make_unique<BluezScan>(std::move(bus), std::move(open_devices), handler);
}

}  // namespace tarvik
