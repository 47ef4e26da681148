#include "wine/bluetooth/device.h"

#include "wine/bluetooth/delegate.h"
#include "wine/bluetooth/gatt.h"
#include "wine/bluetooth/link.h"
#include "wine/bluetooth/operation.h"

namespace brennix {

namespace {

class Device final : public ClosableObject<IDevice, IDevice3>, private LinkListener {
public:
    explicit Device(Link* link) : ClosableObject("BluetoothLEDevice"), link_(link), hold_(link) {
        link_->Add(this);
    }
    ~Device() override { link_->Remove(this); }

    HRESULT STDMETHODCALLTYPE get_ConnectionStatus(INT32* status) override {
        *status = link_->IsConnected() ? 1 : 0;
        return EnterOpen("get_ConnectionStatus");
    }
    HRESULT STDMETHODCALLTYPE get_BluetoothAddress(UINT64* address) override {
        *address = link_->Address();
        return EnterOpen("get_BluetoothAddress");
    }
    // The event for the new connection may still be in progress, so always deliver it late.
    HRESULT STDMETHODCALLTYPE add_ConnectionStatusChanged(ConnectionStatusChangedHandler* handler,
                                                          Token* token) override {
        if (const HRESULT fault = EnterOpen("add_ConnectionStatusChanged")) return fault;
        const HRESULT result = changed_.Add(handler, token);
        OnConnectionChanged();
        return result;
    }
    HRESULT STDMETHODCALLTYPE remove_ConnectionStatusChanged(Token token) override {
        EnterOpen("remove_ConnectionStatusChanged");
        changed_.Remove(token);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetGattServicesAsync(IServicesOperation** operation) override {
        if (const HRESULT fault = EnterOpen("GetGattServicesAsync")) return fault;
        return GetServices("GetGattServicesAsync", link_, operation);
    }
    HRESULT STDMETHODCALLTYPE
    GetGattServicesWithCacheModeAsync(INT32, IServicesOperation** operation) override {
        constexpr const char* kFunction = "GetGattServicesWithCacheModeAsync";
        if (const HRESULT fault = EnterOpen(kFunction)) return fault;
        return GetServices(kFunction, link_, operation);
    }

private:
    void OnClose() override { hold_.End(); }
    void OnConnectionChanged() override {
        if (!TryAddRef()) return;
        Raise(Threads().connections, changed_.All(), Ref<Device>(this), Ref<IInspectable>{});
    }

    Link* const link_;
    LinkHold hold_;
    Handlers<ConnectionStatusChangedHandler> changed_{"ConnectionStatusChanged",
                                                      kConnectionStatusChangedHandler};
};

using DeviceOperation = Operation<IDeviceOperation, DeviceIds, IDevice*, Ref<IDevice>>;

class DeviceFactory final : public Object<IFactory, IDeviceStatics> {
public:
    DeviceFactory() : Object("BluetoothLEDevice class") {}
    HRESULT STDMETHODCALLTYPE ActivateInstance(IInspectable**) override { return E_NOTIMPL; }
    // Null for a device that the system has never seen.
    HRESULT STDMETHODCALLTYPE FromBluetoothAddressAsync(UINT64 address,
                                                        IDeviceOperation** place) override {
        Link* const link = &Link::To(address);
        return BeginOperation<DeviceOperation>(
            "FromBluetoothAddressAsync", place,
            [link](const Ref<DeviceOperation>& operation) {
                operation->Complete(link->IsKnown() ? Ref<IDevice>(new Device(link))
                                                    : Ref<IDevice>{});
            },
            [](const Ref<DeviceOperation>& operation, INT32) { operation->Fail(E_INVALIDARG); });
    }
};

}  // namespace

Ref<IFactory> MakeDeviceFactory() { return Ref<IFactory>(new DeviceFactory); }

}  // namespace brennix
