// The radio of a Linux computer, through BlueZ.
#include <utility>

#include "transport/ble/ble_radio.h"
#include "transport/ble/bluez_device.h"
#include "transport/ble/bluez_library.h"
#include "transport/ble/bluez_limits.h"
#include "transport/ble/bluez_open_devices.h"
#include "transport/ble/bluez_opening.h"
#include "transport/ble/bluez_scan.h"

namespace tarvik {
namespace {

// The message bus and the Bluetooth service may start later than this process, and restart. So the
// bus is connected when it is first needed, and again after it was lost.
class BluezRadio final : public BleRadio {
public:
    std::unique_ptr<BleScan> CreateScan(BleScan::Handler& handler) override {
        return CreateBluezScan(Bus(), open_devices_, handler);
    }
    std::unique_ptr<BleDevice> Open(std::uint64_t address) override {
        return OpenBluezDevice(Bus(), open_devices_, address);
    }
    void CancelConnecting() noexcept override {
        const LockGuard hold(lock_);
        cancelled_ = true;
        if (bus_ != nullptr) bus_->CancelConnecting();
    }
    void EnterThread() override {}
    void LeaveThread() noexcept override {}

private:
    std::shared_ptr<BluezBus> Bus() {
        const LockGuard hold(opening_lock_);
        if (auto bus = OpenBus()) return bus;
        const auto opening =
            opening_ != nullptr ? std::exchange(opening_, nullptr) : BluezOpening::Begin();
        auto bus = opening->Await(GetBluezLimits().open_bus_ms);
        if (bus == nullptr) {
            opening_ = opening;
            throw BleError("the system's message bus does not answer");
        }
        Use(bus);
        return bus;
    }
    // Null: no bus is connected.
    std::shared_ptr<BluezBus> OpenBus() {
        const LockGuard hold(lock_);
        return bus_ != nullptr && !bus_->closed() ? bus_ : nullptr;
    }
    void Use(const std::shared_ptr<BluezBus>& bus) {
        const LockGuard hold(lock_);
        bus_ = bus;
        if (cancelled_) bus->CancelConnecting();
    }

    OsLock opening_lock_;  // held while the bus is being connected; taken before lock_
    std::shared_ptr<BluezOpening> opening_;  // one that has not finished in time

    OsLock lock_;
    std::shared_ptr<BluezBus> bus_;
    bool cancelled_ = false;
    const std::shared_ptr<BluezOpenDevices> open_devices_ = std::make_shared<BluezOpenDevices>();
};

}  // namespace

std::unique_ptr<BleRadio> OpenBleRadio() {
    LoadBluezLibrary();
    return std::make_unique<BluezRadio>();
}

}  // namespace tarvik
