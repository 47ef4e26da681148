// The Windows Runtime's radio.

#include "transport/ble/ble_winrt.h"

#include "platform/process.h"
#include "transport/ble/winrt_delegate.h"

namespace tarvik {

namespace {

class WinrtRadio final : public BleRadio {
public:
    explicit WinrtRadio(const WinrtLimits& limits)
        : limits_(limits), give_up_(OsEventCreate(EventReset::kManual)) {
        if (give_up_ == nullptr) winrt::Check(HRESULT_FROM_WIN32(::GetLastError()));
    }
    // The runtime may still call a delegate that it holds: of an operation that never ends, or of
    // an event that is under way.
    ~WinrtRadio() override {
        if (winrt::delegates_alive > 0) OsKeepLibraryLoaded();
    }
    WinrtRadio(const WinrtRadio&) = delete;
    WinrtRadio& operator=(const WinrtRadio&) = delete;

    std::unique_ptr<BleScan> CreateScan(BleScan::Handler& handler) override {
        return CreateWinrtScan(runtime_, handler);
    }
    std::unique_ptr<BleDevice> Open(std::uint64_t address) override {
        return OpenWinrtDevice(runtime_, limits_, give_up_.get(), address);
    }
    void CancelConnecting() noexcept override { OsEventSet(give_up_.get()); }
    void EnterThread() override { runtime_.EnterThread(); }
    void LeaveThread() noexcept override { runtime_.LeaveThread(); }

private:
    struct CloseEvent {
        void operator()(OsEvent* event) const noexcept { OsEventClose(event); }
    };

    const WinrtLimits limits_;
    const std::unique_ptr<OsEvent, CloseEvent> give_up_;
    winrt::Runtime runtime_;
};

}  // namespace

std::unique_ptr<BleRadio> OpenWinrtRadio(const WinrtLimits& limits) {
    return std::make_unique<WinrtRadio>(limits);
}

std::unique_ptr<BleRadio> OpenBleRadio() { return OpenWinrtRadio(WinrtLimits{}); }

}  // namespace tarvik
