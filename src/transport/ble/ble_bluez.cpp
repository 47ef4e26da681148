// The radio of a Linux computer, through BlueZ.
#include <charconv>
#include <utility>

#include "transport/ble/bluez_opening.h"
#include "transport/ble/bluez_radio.h"

namespace tarvik {

static constexpr std::chrono::milliseconds kBusLimit{5'000};

std::optional<std::uint64_t> BluezAddress(const std::string& text) {
    std::uint64_t address = 0;
    if (text.size() != 17) return std::nullopt;
    for (std::size_t at = 0; at < text.size(); at += 3) {
        std::uint8_t byte = 0;
        const char* begin = text.data() + at;
        const auto [end, error] = std::from_chars(begin, begin + 2, byte, 16);
        if (error != std::errc() || end != begin + 2) return std::nullopt;
        address = address << 8 | byte;
    }
    return address;
}

bool IsBelow(const std::string& path, const std::string& parent) {
    return path.size() > parent.size() && path[parent.size()] == '/' &&
           path.compare(0, parent.size(), parent) == 0;
}

std::string PoweredAdapter(const std::vector<BluezObject>& objects) {
    bool found = false;
    for (const BluezObject& object : objects) {
        if (object.interface != kBluezAdapter) continue;
        found = true;
        if (object.properties.powered.value_or(false)) return object.path;
    }
    throw BleError(found ? "the Bluetooth adapter is switched off"
                         : "there is no Bluetooth adapter");
}

namespace {

// The message bus and the Bluetooth service may come later than this, and go and come again: the
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
        auto bus = opening->Await(kBusLimit);
        if (bus == nullptr) {
            opening_ = opening;
            throw BleError("the system's message bus does not answer");
        }
        Use(bus);
        return bus;
    }
    // Null: there is none.
    std::shared_ptr<BluezBus> OpenBus() {
        const LockGuard hold(lock_);
        return bus_ != nullptr && !bus_->closed() ? bus_ : nullptr;
    }
    void Use(const std::shared_ptr<BluezBus>& bus) {
        const LockGuard hold(lock_);
        bus_ = bus;
        if (cancelled_) bus->CancelConnecting();
    }

    OsLock opening_lock_;                    // held while the bus is connected; comes before lock_
    std::shared_ptr<BluezOpening> opening_;  // that was not over in time

    OsLock lock_;
    std::shared_ptr<BluezBus> bus_;
    bool cancelled_ = false;
    const std::shared_ptr<BluezOpenDevices> open_devices_ = std::make_shared<BluezOpenDevices>();
};

}  // namespace

std::unique_ptr<BleRadio> OpenBleRadio() { return std::make_unique<BluezRadio>(); }

}  // namespace tarvik
