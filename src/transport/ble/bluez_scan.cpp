#include <map>
#include <utility>

#include "support/log.h"
#include "transport/ble/bluez_radio.h"

namespace tarvik {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kCallLimit{5'000};
constexpr std::int32_t kStarted = 1;
constexpr std::int32_t kStopped = 3;
constexpr std::int16_t kUnknownRssi = 127;  // as Bluetooth itself says "not known"

// Discovery through BlueZ. It keeps objects of devices that it has seen before: only a signal
// strength that is told while this scan runs is a sign that the device is there.
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
        std::string name;
        std::optional<std::int16_t> rssi;  // in this scan
    };

    void StartDiscovery();
    void Take(const std::vector<BluezObject>& objects);
    void NoteProperties(const BluezObject& device);
    void Advertise(const Seen& device);

    void ObjectAdded(const BluezObject& object) override;
    void Changed(const BluezObject& object) override;
    void ServiceGone() override;

    const std::shared_ptr<BluezBus> bus_;
    const std::shared_ptr<BluezOpenDevices> open_devices_;
    Handler& handler_;
    std::string adapter_;
    bool started_ = false;

    OsLock lock_;  // guards what follows; the handler is called inside, the bus is not
    bool service_gone_ = false;
    std::map<std::string, Seen> devices_;  // by their paths
};

BluezScan::~BluezScan() {
    if (!started_) return;
    try {
        Stop();
    } catch (const BleError& error) {
        Log(kLogTrace, "[BLE] Discovery did not end as it should: %s", error.message().c_str());
    }
}

void BluezScan::Start() {
    const std::vector<BluezObject> objects = bus_->Objects();
    adapter_ = PoweredAdapter(objects);
    Take(objects);
    bus_->Add(this);  // before what causes the signals
    started_ = true;
    StartDiscovery();
}

void BluezScan::StartDiscovery() {
    bus_->Call({adapter_, kBluezAdapter, "SetDiscoveryFilter", kCallLimit},
               [](sdbus::MethodCall& call) {
                   call << std::map<std::string, sdbus::Variant>{
                       {"Transport", sdbus::Variant(std::string("le"))},
                       {"DuplicateData", sdbus::Variant(true)}};
               });
    try {
        bus_->Call({adapter_, kBluezAdapter, "StartDiscovery", kCallLimit});
    } catch (const BluezError& error) {
        if (!error.Is("InProgress")) throw;  // a session that was not ended goes on
    }
}

void BluezScan::Stop() {
    if (!std::exchange(started_, false)) return;
    bus_->Remove(this);
    bus_->Call({adapter_, kBluezAdapter, "StopDiscovery", kCallLimit});
    const LockGuard hold(lock_);
    if (service_gone_) throw BleError("the Bluetooth service has gone during the scan");
}

// What BlueZ knows already. A dongle that it keeps connected does not advertise: one that an
// earlier process has left behind would never be found again.
void BluezScan::Take(const std::vector<BluezObject>& objects) {
    const LockGuard hold(lock_);
    for (const BluezObject& object : objects) {
        if (object.interface != kBluezDevice) continue;
        BluezObject known = object;
        known.properties.rssi.reset();  // of an earlier scan
        NoteProperties(known);
        Seen& device = devices_[object.path];
        if (!object.properties.connected.value_or(false) || !device.address) continue;
        if (open_devices_->Contains(*device.address)) continue;
        device.rssi = object.properties.rssi.value_or(kUnknownRssi);
        Advertise(device);
    }
}

// Under the lock.
void BluezScan::NoteProperties(const BluezObject& device) {
    const BluezProperties& properties = device.properties;
    Seen& seen = devices_[device.path];
    if (properties.address) seen.address = BluezAddress(*properties.address);
    if (properties.name) seen.name = *properties.name;
    if (properties.rssi) seen.rssi = properties.rssi;
}

void BluezScan::Advertise(const Seen& device) {
    if (!device.address || !device.rssi) return;
    const auto* name = reinterpret_cast<const std::uint8_t*>(device.name.data());
    handler_.Advertised({*device.address, *device.rssi, {name, device.name.size()}});
}

void BluezScan::ObjectAdded(const BluezObject& object) { Changed(object); }

void BluezScan::Changed(const BluezObject& object) {
    if (object.interface != kBluezDevice) return;
    const LockGuard hold(lock_);
    NoteProperties(object);
    // The name may come after the strength, in a signal of its own.
    if (object.properties.rssi || object.properties.name) Advertise(devices_[object.path]);
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
