#include "transport/ble/bluez_scan.h"

#include <algorithm>
#include <map>
#include <utility>

#include "platform/tick.h"
#include "support/log.h"
#include "transport/ble/ble_text.h"
#include "transport/ble/bluez_limits.h"
#include "transport/ble/bluez_objects.h"

namespace tarvik {
namespace {

constexpr std::int32_t kCreated = 0;
constexpr std::int32_t kStarted = 1;
constexpr std::int32_t kStopped = 3;
constexpr std::int16_t kUnknownRssi = 127;  // Bluetooth's own value for "not known"

// Discovery through BlueZ. BlueZ keeps objects of devices that it has seen before: a device counts
// as present only if its signal strength is signalled while this scan runs, or was while another
// program's scan ran that has not ended, since the kernel reports a device once.
class BluezScan final : public BleScan, private BluezListener {
public:
    BluezScan(std::shared_ptr<BluezBus> bus, std::shared_ptr<BluezOpenDevices> open_devices,
              Handler& handler)
        : bus_(std::move(bus)), open_devices_(std::move(open_devices)), handler_(handler) {}
    ~BluezScan() override;

    void Start() override;
    void Poll(std::uint32_t left_ms) override;
    std::int32_t Status() override;
    void Stop() override;

private:
    struct Seen {
        std::optional<std::uint64_t> address;
        std::optional<std::string> name;
        std::optional<std::int16_t> rssi;  // in this scan
    };

    void SetFilter();
    void StartDiscovery(std::uint32_t limit_ms);
    void LogRefusal(const BluezError& error);
    bool AdapterDiscovers();
    void StopDiscovery();
    void ReadKnownObjects(const std::vector<BluezObject>& objects);
    void ReadKnownAdapter(const BluezObject& object);
    void ReadKnownDevice(const BluezProperties& properties, Seen* device);
    void DeviceChanged(const std::string& path, const BluezProperties& properties);
    void Advertise(const std::string& path);

    void ObjectAdded(const BluezObject& object) override;
    void Changed(const BluezObject& object) override;
    void ServiceGone() override;

    const std::shared_ptr<BluezBus> bus_;
    const std::shared_ptr<BluezOpenDevices> open_devices_;
    Handler& handler_;
    bool started_ = false;
    bool discovers_ = false;  // BlueZ has begun for this connection, or may do so yet
    std::string refusal_;     // the last one that was logged
    std::uint64_t next_attempt_ms_ = 0;

    OsLock lock_;  // guards everything below; held for the handler, never for calls of the bus
    std::string adapter_;  // the scanning one; empty until it is known. Only Start changes it
    bool service_gone_ = false;
    bool was_discovering_ = false;             // for another program, before this scan
    std::map<std::string, bool> discovering_;  // by adapter
    std::map<std::string, Seen> devices_;      // by path
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
    SetFilter();
    try {
        StartDiscovery(GetBluezLimits().discovery_ms);
    } catch (const BluezError& error) {
        if (!error.Is("InProgress")) throw;
        LogRefusal(error);
    }
}

void BluezScan::SetFilter() {
    bus_->Call({adapter_, kBluezAdapter, "SetDiscoveryFilter", GetBluezLimits().discovery_ms},
               [](sdbus::MethodCall& call) {
                   call << std::map<std::string, sdbus::Variant>{
                       {"Transport", sdbus::Variant(std::string("le"))},
                       {"DuplicateData", sdbus::Variant(true)}};
               });
}

// BlueZ answers "InProgress" if this connection's earlier discovery was not stopped, which is then
// used, but also to whatever the kernel refuses. A call that is not answered in time may still
// begin discovery.
void BluezScan::StartDiscovery(std::uint32_t limit_ms) {
    next_attempt_ms_ = TickMs() + GetBluezLimits().discovery_retry_ms;
    discovers_ = true;
    try {
        bus_->Call({adapter_, kBluezAdapter, "StartDiscovery", limit_ms});
    } catch (const BluezError& error) {
        const bool is_ours = error.Is("InProgress") && bus_->discovery_left() && AdapterDiscovers();
        discovers_ = is_ours || error.IsSilence();
        throw;
    }
}

// A discovery that runs already, of whomever, serves this scan too.
void BluezScan::LogRefusal(const BluezError& error) {
    const char* const outcome = error.IsSilence() ? "is late" : "is refused and tried again";
    if (AdapterDiscovers() || error.message() == refusal_) return;
    refusal_ = error.message();
    Log(kLogTrace, "[BLE] Discovery %s: %s", outcome, BleErrorText(error).text);
}

bool BluezScan::AdapterDiscovers() {
    const LockGuard hold(lock_);
    return discovering_[adapter_];
}

// Another program's discovery may end before this scan.
void BluezScan::Poll(std::uint32_t left_ms) {
    if (!started_ || discovers_ || left_ms == 0) return;
    if (TickMs() < next_attempt_ms_ || AdapterDiscovers()) return;
    try {
        StartDiscovery(std::min(left_ms, GetBluezLimits().discovery_ms));
    } catch (const BluezError& error) {
        LogRefusal(error);
    }
}

std::int32_t BluezScan::Status() {
    if (!started_) return kStopped;
    return discovers_ || AdapterDiscovers() ? kStarted : kCreated;
}

// Its failure does not keep the scan from asking the dongles that are connected.
void BluezScan::StopDiscovery() {
    const BluezLimits& limits = GetBluezLimits();
    const std::uint32_t limit_ms = bus_->answers() ? limits.discovery_ms : limits.close_mute_ms;
    bus_->SetDiscoveryLeft(true);
    try {
        bus_->Call({adapter_, kBluezAdapter, "StopDiscovery", limit_ms});
        bus_->SetDiscoveryLeft(false);
    } catch (const BluezError& error) {
        Log(kLogTrace, "[BLE] Discovery did not end as it should: %s", BleErrorText(error).text);
    }
}

// Listens until discovery is stopped: the end of the service is signalled before that answer.
void BluezScan::Stop() {
    if (!std::exchange(started_, false)) return;
    if (std::exchange(discovers_, false)) StopDiscovery();
    bus_->Remove(this);
    const LockGuard hold(lock_);
    if (service_gone_) throw BleError("the Bluetooth service has gone during the scan");
}

// Merges what BlueZ knew before the scan with what was signalled meanwhile.
void BluezScan::ReadKnownObjects(const std::vector<BluezObject>& objects) {
    const LockGuard hold(lock_);
    adapter_ = PoweredAdapter(objects);
    for (const BluezObject& object : objects) {
        if (object.interface == kBluezAdapter) ReadKnownAdapter(object);
    }
    for (const BluezObject& object : objects) {
        if (object.interface == kBluezDevice)
            ReadKnownDevice(object.properties, &devices_[object.path]);
    }
    for (const auto& [path, device] : devices_)
        Advertise(path);
}

// Called under the lock, as is the next.
void BluezScan::ReadKnownAdapter(const BluezObject& object) {
    const bool discovering = object.properties.discovering.value_or(false);
    discovering_.emplace(object.path, discovering);
    if (object.path == adapter_) was_discovering_ = discovering;
}

// A signal is never older than what BlueZ returned. A signal strength from before the scan counts
// only if it comes from a scan that still runs; BlueZ removes it when the last one ends. A dongle
// that BlueZ keeps connected counts without: it does not advertise, so one that an earlier process
// left connected would never be found again.
void BluezScan::ReadKnownDevice(const BluezProperties& properties, Seen* device) {
    if (properties.address) device->address = BluezAddress(*properties.address);
    if (!device->name) device->name = properties.name;
    if (was_discovering_ && !device->rssi) device->rssi = properties.rssi;
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
    const LockGuard hold(lock_);
    const BluezProperties& properties = object.properties;
    if (object.interface == kBluezDevice) DeviceChanged(object.path, properties);
    if (object.interface == kBluezAdapter && properties.discovering)
        discovering_[object.path] = *properties.discovering;
}

// Called under the lock.
void BluezScan::DeviceChanged(const std::string& path, const BluezProperties& properties) {
    Seen& seen = devices_[path];
    if (properties.address) seen.address = BluezAddress(*properties.address);
    if (properties.name) seen.name = properties.name;
    if (properties.rssi) seen.rssi = properties.rssi;
    // The name may come after the signal strength, in another signal.
    if (properties.rssi || properties.name) Advertise(path);
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
