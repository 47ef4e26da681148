// A system whose Bluetooth this version does not use: every scan says so and finds nothing.
#include "transport/ble/ble_radio.h"

namespace tarvik {

namespace {
class AbsentRadio final : public BleRadio {
public:
    std::unique_ptr<BleScan> CreateScan(BleScan::Handler&) override { Refuse(); }
    std::unique_ptr<BleDevice> Open(std::uint64_t) override { Refuse(); }
    void EnterThread() override {}
    void LeaveThread() noexcept override {}

private:
    [[noreturn]] static void Refuse() {
        throw BleError("Bluetooth is not available on this system");
    }
};
}  // namespace

std::unique_ptr<BleRadio> OpenBleRadio() { return std::make_unique<AbsentRadio>(); }

}  // namespace tarvik
