// The simulator's runtime classes report broken rules. Without that, the empty reports in the other
// tests would prove nothing.

#include "transport/ble/winrt_async.h"
#include "transport/ble/winrt_runtime.h"
#include "unit/ble_winrt/fixture.h"

namespace tarvik::test {
namespace {

using namespace winrt;

class RuntimeRules : public WinrtDongle {
protected:
    Pointer<AdvertisementWatcher> MakeWatcher() {
        return runtime.Activate<AdvertisementWatcher>(AdvertisementWatcher::kClass);
    }
    Pointer<AsyncOperation<Device*>> BeginOpen() {
        Pointer<AsyncOperation<Device*>> operation;
        Call(runtime.Factory<DeviceStatics>(Device::kClass),
             &DeviceStatics::Table::FromBluetoothAddressAsync, kDongleAddress, operation.Receive());
        return operation;
    }
    Pointer<Device> OpenDevice() { return Pointer<Device>(Await(BeginOpen(), 10'000)); }
    Pointer<Vector<Service>> ServicesOf(const Pointer<Device>& opened) {
        Pointer<AsyncOperation<ServicesResult*>> operation;
        Call(opened.Query<Device3>(), &Device3::Table::GetGattServicesWithCacheModeAsync,
             CacheMode::kUncached, operation.Receive());
        const Pointer<ServicesResult> result(Await(operation, 10'000));
        Pointer<Vector<Service>> list;
        Call(result, &ServicesResult::Table::get_Services, list.Receive());
        return list;
    }
    template <typename Item>
    using Items = std::vector<Pointer<Item>>;
    template <typename Item>
    static Items<Item> ItemsOf(const Pointer<Vector<Item>>& list) {
        std::uint32_t count = 0;
        Call(list, &Vector<Item>::Table::get_Size, &count);
        Items<Item> items(count);
        for (std::uint32_t i = 0; i < count; ++i)
            Call(list, &Vector<Item>::Table::GetAt, i, items[i].Receive());
        return items;
    }
    static Items<Characteristic> CharacteristicsOf(const Pointer<Service>& service) {
        Pointer<AsyncOperation<CharacteristicsResult*>> operation;
        Call(service.Query<Service3>(), &Service3::Table::GetCharacteristicsWithCacheModeAsync,
             CacheMode::kUncached, operation.Receive());
        const Pointer<CharacteristicsResult> result(Await(operation, 10'000));
        Pointer<Vector<Characteristic>> list;
        Call(result, &CharacteristicsResult::Table::get_Characteristics, list.Receive());
        return ItemsOf(list);
    }
    static void ExpectReported(const std::string& text) {
        const std::string report = TakeReport();
        EXPECT_NE(report.find(text), std::string::npos) << report;
    }

    Runtime runtime;
};

using ReceivedDelegate = Delegate<Inspectable*, ReceivedEventArgs*>;

TEST_F(RuntimeRules, UnreleasedObjectIsReported) {
    const Pointer<AdvertisementWatcher> watcher = MakeWatcher();
    ExpectReported("1 of BluetoothLEAdvertisementWatcher not released");
}

TEST_F(RuntimeRules, HandlerThatIsNeverRemovedIsReported) {
    auto* handler = new ReceivedDelegate(AdvertisementWatcher::kReceivedIid, [](auto, auto) {});
    EventRegistrationToken token{};
    Call(MakeWatcher(), &AdvertisementWatcher::Table::add_Received, static_cast<IUnknown*>(handler),
         &token);
    handler->Release();
    ExpectReported("a handler of Received was never removed");
}

TEST_F(RuntimeRules, DelegateWithAnotherIdIsReported) {
    auto* handler = new ReceivedDelegate(AdvertisementWatcher::kStoppedIid, [](auto, auto) {});
    const Pointer<AdvertisementWatcher> watcher = MakeWatcher();
    EventRegistrationToken token{};
    Call(watcher, &AdvertisementWatcher::Table::add_Received, static_cast<IUnknown*>(handler),
         &token);
    Call(watcher, &AdvertisementWatcher::Table::remove_Received, token);
    handler->Release();
    ExpectReported("the delegate of Received does not answer to its own id");
    Call(watcher, &AdvertisementWatcher::Table::remove_Stopped, token);
    ExpectReported("an unknown handler of Stopped removed");
}

TEST_F(RuntimeRules, WatcherThatIsNotStoppedIsReported) {
    Call(MakeWatcher(), &AdvertisementWatcher::Table::Start);
    ExpectReported("a watcher released while it scans");
    Scan();  // also ends the radio's scan
}

TEST_F(RuntimeRules, DevicesAndServicesThatAreNotClosedAreReported) {
    {
        Pointer<Service> service;
        Call(ServicesOf(OpenDevice()), &Vector<Service>::Table::GetAt, 0u, service.Receive());
    }
    const std::string report = TakeReport();
    EXPECT_NE(report.find("BluetoothLEDevice released without Close"), std::string::npos);
    EXPECT_NE(report.find("GattDeviceService released without Close"), std::string::npos);
}

TEST_F(RuntimeRules, UseOfAClosedDeviceIsReported) {
    const Pointer<Device> opened = OpenDevice();
    CloseObject(opened);
    EXPECT_NE(ErrorOf([&] { ServicesOf(opened); }), "");
    ExpectReported("GetGattServicesWithCacheModeAsync of a closed BluetoothLEDevice");
}

TEST_F(RuntimeRules, OpenServiceKeepsTheConnection) {
    const Pointer<Device> opened = OpenDevice();
    Pointer<Service> service;
    const Pointer<Vector<Service>> list = ServicesOf(opened);
    Call(list, &Vector<Service>::Table::GetAt, 0u, service.Receive());
    Pointer<Service> other;
    Call(list, &Vector<Service>::Table::GetAt, 1u, other.Receive());
    CloseObject(opened);
    CloseObject(other);
    EXPECT_TRUE(RadioSays("\"connected\":true"));
    CloseObject(service);
}

TEST_F(RuntimeRules, ConnectionThatEndsWithNotificationsSwitchedOnIsReported) {
    const Pointer<Device> opened = OpenDevice();
    const Items<Service> services = ItemsOf(ServicesOf(opened));
    const Items<Characteristic> characteristics = CharacteristicsOf(services.back());
    const Pointer<Characteristic>& own = characteristics.front();
    EventHandler<Characteristic, ValueChangedEventArgs> handler;
    handler.Begin(own, &Characteristic::Table::add_ValueChanged,
                  &Characteristic::Table::remove_ValueChanged, Characteristic::kValueChangedIid,
                  [](ValueChangedEventArgs*) {});
    Pointer<AsyncOperation<CommunicationStatus>> operation;
    Call(own, &Characteristic::Table::WriteClientCharacteristicConfigurationDescriptorAsync,
         DescriptorValue::kNotify, operation.Receive());
    ASSERT_EQ(Await(operation, 10'000), CommunicationStatus::kSuccess);
    handler.End();
    for (const Pointer<Service>& service : services)
        CloseObject(service);
    CloseObject(opened);
    ExpectReported("a connection ended with notifications switched on");
}

TEST_F(RuntimeRules, SecondHandlerAndEarlyResultOfAnOperationAreReported) {
    PlanFault("FromBluetoothAddressAsync", "never");
    const auto operation = BeginOpen();
    Device* result = nullptr;
    EXPECT_NE(
        ErrorOf([&] { Call(operation, &AsyncOperation<Device*>::Table::GetResults, &result); }),
        "");
    ExpectReported("GetResults before the operation was over");
    auto* handler = new Delegate<AsyncOperation<Device*>*, AsyncState>(
        AsyncOperation<Device*>::kCompletedIid, [](auto, auto) {});
    const auto put = [&] {
        Call(operation, &AsyncOperation<Device*>::Table::put_Completed,
             static_cast<IUnknown*>(handler));
    };
    put();
    EXPECT_NE(ErrorOf(put), "");
    handler->Release();
    ExpectReported("put_Completed called twice");
}

TEST_F(RuntimeRules, ThreadThatHasNotEnteredIsReported) {
    const Pointer<AdvertisementWatcher> watcher = MakeWatcher();
    conformance::Thread([&] {
        Call(watcher, &AdvertisementWatcher::Table::put_ScanningMode, ScanningMode::kActive);
    }).Join();
    ExpectReported("put_ScanningMode on a thread that has not entered the runtime");
}

}  // namespace
}  // namespace tarvik::test
