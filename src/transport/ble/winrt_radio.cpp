// The radio of a Windows computer, through the Windows Runtime.
#include "platform/event.h"
#include "platform/process.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/winrt_delegate.h"
#include "transport/ble/winrt_device.h"
#include "transport/ble/winrt_runtime.h"
#include "transport/ble/winrt_scan.h"

namespace tarvik {
namespace {

class WinrtRadio final : public BleRadio {
public:
    WinrtRadio() : give_up_(OsEventCreate(EventReset::kManual)) {
        if (give_up_ == nullptr) winrt::Check(HRESULT_FROM_WIN32(::GetLastError()));
    }
    // The runtime may still call a delegate that it holds: that of an operation that never ends, or
    // of an event being raised now.
    ~WinrtRadio() override {
        if (winrt::delegates_alive > 0) OsKeepLibraryLoaded();
    }
    WinrtRadio(const WinrtRadio&) = delete;
    WinrtRadio& operator=(const WinrtRadio&) = delete;

    std::unique_ptr<BleScan> CreateScan(BleScan::Handler& handler) override {
        return CreateWinrtScan(runtime_, handler);
    }
    std::unique_ptr<BleDevice> Open(std::uint64_t address) override {
        return OpenWinrtDevice(runtime_, give_up_.get(), address);
    }
    void CancelConnecting() noexcept override { OsEventSet(give_up_.get()); }
    void EnterThread() override { runtime_.EnterThread(); }
    void LeaveThread() noexcept override { runtime_.LeaveThread(); }

private:
    struct CloseEvent {
        void operator()(OsEvent* event) const noexcept { OsEventClose(event); }
    };

    const std::unique_ptr<OsEvent, CloseEvent> give_up_;
    winrt::Runtime runtime_;
};

}  // namespace

std::unique_ptr<BleRadio> OpenBleRadio() { return std::make_unique<WinrtRadio>(); }

}  // namespace tarvik
