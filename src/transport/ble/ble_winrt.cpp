// The Windows Runtime's radio.

#include "transport/ble/ble_winrt.h"

namespace tarvik {

namespace {

class WinrtRadio final : public BleRadio {
public:
    explicit WinrtRadio(const WinrtLimits& limits) : limits_(limits) {}

    std::unique_ptr<BleScan> CreateScan(BleScan::Handler& handler) override {
        return CreateWinrtScan(runtime_, handler);
    }
    std::unique_ptr<BleDevice> Open(std::uint64_t address) override {
        return OpenWinrtDevice(runtime_, limits_, address);
    }
    void EnterThread() override { runtime_.EnterThread(); }
    void LeaveThread() noexcept override { runtime_.LeaveThread(); }

private:
    const WinrtLimits limits_;
    winrt::Runtime runtime_;
};

}  // namespace

std::unique_ptr<BleRadio> OpenWinrtRadio(const WinrtLimits& limits) {
    return std::make_unique<WinrtRadio>(limits);
}

std::unique_ptr<BleRadio> OpenBleRadio() { return OpenWinrtRadio(WinrtLimits{}); }

}  // namespace tarvik
