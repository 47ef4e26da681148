// The Windows Runtime's Bluetooth LE classes for programs under Wine, which has none: a thin layer
// over the simulated radio. They check that programs follow the rules: what Windows would refuse,
// tolerate or crash on is a violation, reported to the radio.
//
// Programs whose environment has BRENNIX_RADIO get these classes, if the registry or a manifest
// names this library for them.

#include <windows.h>

#include <activation.h>
#include <winstring.h>

#include <cstring>
#include <string>

#include "wine/bluetooth/device.h"
#include "wine/bluetooth/link.h"
#include "wine/bluetooth/radio_client.h"
#include "wine/bluetooth/task_thread.h"
#include "wine/bluetooth/watcher.h"

namespace brennix {

namespace {

class WatcherFactory final : public Object<IFactory> {
public:
    WatcherFactory() : Object("BluetoothLEAdvertisementWatcher class") {}
    HRESULT STDMETHODCALLTYPE ActivateInstance(IInspectable** instance) override {
        if (const HRESULT fault = Enter("ActivateInstance")) return fault;
        if (ReturnsNull("ActivateInstance", instance)) return S_OK;
        return MakeWatcher().MoveTo(instance);
    }
};

Ref<IFactory> MakeFactory(const std::wstring& class_name) {
    if (class_name == L"Windows.Devices.Bluetooth.Advertisement.BluetoothLEAdvertisementWatcher") {
        return Ref<IFactory>(new WatcherFactory);
    }
    if (class_name == L"Windows.Devices.Bluetooth.BluetoothLEDevice") return MakeDeviceFactory();
    return {};
}

}  // namespace

RadioClient::Events RadioEvents() {
    return {.advertised = Advertised,
            .notified =
                [](std::uint64_t address, const std::string& value_hex) {
                    Link::To(address).Notified(FromHex(value_hex));
                },
            .lost = [](std::uint64_t address) { Link::To(address).Lost(); },
            .adapter_changed =
                [](const std::string& state) {
                    if (state != "on") AbortWatchers();
                }};
}

}  // namespace brennix

extern "C" {

__declspec(dllexport) HRESULT WINAPI
    DllGetActivationFactory(HSTRING class_id, ::IActivationFactory** factory) {
    *factory = nullptr;
    if (brennix::RadioClient::Get() == nullptr) return REGDB_E_CLASSNOTREG;
    UINT32 length = 0;
    const wchar_t* const text = ::WindowsGetStringRawBuffer(class_id, &length);
    brennix::Ref<brennix::IFactory> made = brennix::MakeFactory(std::wstring(text, length));
    if (!made) return REGDB_E_CLASSNOTREG;
    void* found = nullptr;
    const HRESULT result = made->QueryInterface(brennix::IFactory::kId, &found);
    *factory = static_cast<::IActivationFactory*>(found);
    return result;
}

// Reports what the program did wrong since the last report and what it has not released, one line
// each, after everything in progress has arrived. Returns the length of the complete text.
__declspec(dllexport) std::size_t BrennixBluetoothReport(char* text, std::size_t capacity) {
    if (brennix::RadioClient::Get() != nullptr) brennix::AwaitRadio();
    brennix::Threads().Drain();
    const std::string report = brennix::TakeReport();
    if (capacity > 0) {
        const std::size_t size = std::min(capacity - 1, report.size());
        std::memcpy(text, report.data(), size);
        text[size] = '\0';
    }
    return report.size();
}

// Plans a fault for the next call of a function; see rules.h. 0: invalid.
__declspec(dllexport) int BrennixBluetoothFault(const char* function, const char* fault) {
    return brennix::PlanFault(function, fault) ? 1 : 0;
}

}  // extern "C"
