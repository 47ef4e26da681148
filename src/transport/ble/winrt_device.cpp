#include "transport/ble/winrt_device.h"

#include <atomic>
#include <utility>
#include <vector>

#include "support/log.h"
#include "transport/ble/ble_text.h"
#include "transport/ble/winrt_async.h"
#include "transport/ble/winrt_buffer.h"
#include "transport/ble/winrt_limits.h"

namespace tarvik {

using namespace winrt;

namespace {

constexpr std::size_t kAttributeOverhead = 3;  // bytes of a PDU besides the value
constexpr std::uint16_t kSmallestPdu = 23;     // what every dongle accepts

static_assert(static_cast<std::int32_t>(BleStatus::kSuccess) ==
              static_cast<std::int32_t>(CommunicationStatus::kSuccess));

BleStatus StatusOf(CommunicationStatus status) { return static_cast<BleStatus>(status); }

GUID GuidOf(const BleUuid& uuid) {
    GUID guid{};
    guid.Data1 = static_cast<std::uint32_t>(uuid[0]) << 24 |
                 static_cast<std::uint32_t>(uuid[1]) << 16 |
                 static_cast<std::uint32_t>(uuid[2]) << 8 | uuid[3];
    guid.Data2 = static_cast<std::uint16_t>(uuid[4] << 8 | uuid[5]);
    guid.Data3 = static_cast<std::uint16_t>(uuid[6] << 8 | uuid[7]);
    for (std::size_t i = 0; i < sizeof guid.Data4; ++i)
        guid.Data4[i] = uuid[8 + i];
    return guid;
}

template <typename Item>
using Items = std::vector<Pointer<Item>>;

template <typename Item>
void Collect(const Pointer<Vector<Item>>& list, Items<Item>* items) {
    std::uint32_t count = 0;
    Call(list, &Vector<Item>::Table::get_Size, &count);
    for (std::uint32_t i = 0; i < count; ++i) {
        Pointer<Item> item;
        Call(list, &Vector<Item>::Table::GetAt, i, item.Receive());
        items->push_back(std::move(item));
    }
}

// The first with that UUID, or null.
template <typename Item>
const Pointer<Item>* FindByUuid(const Items<Item>& items, const BleUuid& uuid) {
    const GUID wanted = GuidOf(uuid);
    for (const Pointer<Item>& item : items) {
        GUID found{};
        Call(item, &Item::Table::get_Uuid, &found);
        if (::IsEqualGUID(found, wanted)) return &item;
    }
    return nullptr;
}

class WinrtDevice final : public BleDevice {
public:
    WinrtDevice(OsEvent* give_up, Pointer<Device> device)
        : give_up_(give_up), device_(std::move(device)) {}

    // The system disconnects some time after the last object of the connection is closed.
    ~WinrtDevice() override {
        DisableNotifications();
        RemoveHandlers();
        characteristic_ = {};
        characteristics_.clear();
        CloseObject(session_);
        CloseServices();
        CloseObject(device_);
    }

    // Uncached: the system may have opened a device that it only remembers, so this connects to it;
    // and the device's firmware may have changed since.
    BleStatus DiscoverServices() override {
        Pointer<AsyncOperation<ServicesResult*>> operation;
        Call(device_.Query<Device3>(), &Device3::Table::GetGattServicesWithCacheModeAsync,
             CacheMode::kUncached, operation.Receive());
        Pointer<Vector<Service>> list;
        const BleStatus status = AwaitList(operation, &ServicesResult::Table::get_Services, &list);
        if (status != BleStatus::kSuccess) return status;
        CloseServices();
        Collect(list, &services_);
        return BleStatus::kSuccess;
    }

    bool SelectService(const BleUuid& uuid) override {
        const Pointer<Service>* found = FindByUuid(services_, uuid);
        if (found == nullptr) return false;
        service_ = found->Query<Service3>();
        return true;
    }

    BleStatus DiscoverCharacteristics() override {
        Pointer<AsyncOperation<CharacteristicsResult*>> operation;
        Call(service_, &Service3::Table::GetCharacteristicsWithCacheModeAsync, CacheMode::kUncached,
             operation.Receive());
        Pointer<Vector<Characteristic>> list;
        const BleStatus status =
            AwaitList(operation, &CharacteristicsResult::Table::get_Characteristics, &list);
        if (status != BleStatus::kSuccess) return status;
        characteristics_.clear();
        Collect(list, &characteristics_);
        return BleStatus::kSuccess;
    }

    bool SelectCharacteristic(const BleUuid& uuid) override {
        const Pointer<Characteristic>* found = FindByUuid(characteristics_, uuid);
        if (found == nullptr) return false;
        characteristic_ = Pointer<Characteristic>::Share(found->Get());
        return true;
    }

    BleStatus Subscribe(Handler& handler) override {
        try {
            Call(service_, &Service3::Table::get_Session, session_.Receive());
            AddHandlers(handler);
            const BleStatus status = EnableNotifications();
            if (status != BleStatus::kSuccess) RemoveHandlers();
            return status;
        } catch (...) {
            DisableNotifications();
            RemoveHandlers();
            throw;
        }
    }

    // Deliberate: a value that does not fit the connection fails; a packet is never cut.
    BleStatus Write(std::span<const std::uint8_t> value) override {
        if (lost_) return BleStatus::kUnreachable;
        if (!Fits(value.size())) return BleStatus::kProtocolError;
        const Pointer<Buffer> buffer = MakeBuffer(value);
        Pointer<AsyncOperation<CommunicationStatus>> operation;
        Call(characteristic_, &Characteristic::Table::WriteValueWithOptionAsync, buffer.Get(),
             WriteOption::kWithoutResponse, operation.Receive());
        return StatusOf(Await(operation, GetWinrtLimits().write_ms));
    }

private:
    // Waits for an operation of discovery. Sets `list` if it succeeds.
    template <typename Result, typename Item>
    BleStatus AwaitList(const Pointer<AsyncOperation<Result*>>& operation,
                        Method<Result, Vector<Item>**> Result::Table::*get_list,
                        Pointer<Vector<Item>>* list) {
        const Pointer<Result> result(Await(operation, GetWinrtLimits().connect_ms, give_up_));
        CommunicationStatus status{};
        Call(result, &Result::Table::get_Status, &status);
        if (status == CommunicationStatus::kSuccess) Call(result, get_list, list->Receive());
        return StatusOf(status);
    }

    // Before the descriptor is written, so that no notification and no loss is missed.
    void AddHandlers(Handler& handler) {
        status_changed_.Begin(device_, &Device::Table::add_ConnectionStatusChanged,
                              &Device::Table::remove_ConnectionStatusChanged,
                              Device::kStatusChangedIid,
                              [this, &handler](Inspectable*) { StatusChanged(handler); });
        value_changed_.Begin(
            characteristic_, &Characteristic::Table::add_ValueChanged,
            &Characteristic::Table::remove_ValueChanged, Characteristic::kValueChangedIid,
            [this, &handler](ValueChangedEventArgs* value) { ValueChanged(handler, value); });
    }

    BleStatus WriteDescriptor(DescriptorValue value, std::int32_t limit_ms, OsEvent* give_up) {
        Pointer<AsyncOperation<CommunicationStatus>> operation;
        Call(characteristic_,
             &Characteristic::Table::WriteClientCharacteristicConfigurationDescriptorAsync, value,
             operation.Receive());
        return StatusOf(Await(operation, limit_ms, give_up));
    }

    BleStatus EnableNotifications() {
        const BleStatus status =
            WriteDescriptor(DescriptorValue::kNotify, GetWinrtLimits().connect_ms, give_up_);
        notifying_ = status == BleStatus::kSuccess;
        if (notifying_) AwaitLargerPdu();
        return status;
    }

    // The system reports the smallest size until it has agreed on another one with the dongle,
    // which may be some time after they have connected. Packets that do not fit meanwhile would be
    // lost. A dongle may also stay with the smallest.
    void AwaitLargerPdu() {
        const WinrtLimits& limits = GetWinrtLimits();
        for (std::int32_t waited_ms = 0; !lost_; waited_ms += limits.pdu_poll_ms) {
            ReadLargestPdu();
            if (largest_pdu_ > kSmallestPdu || waited_ms >= limits.pdu_wait_ms) return;
            if (OsEventWait(give_up_, limits.pdu_poll_ms)) throw BleError(kGivenUp);
        }
    }

    // A dongle that is still there learns that nobody listens any longer. If that fails, the end of
    // the connection has the same effect.
    void DisableNotifications() noexcept {
        if (!std::exchange(notifying_, false) || lost_) return;
        try {
            WriteDescriptor(DescriptorValue::kNone, GetWinrtLimits().close_ms, nullptr);
        } catch (...) {
            Log(kLogTrace, "[BLE] Failed to disable notifications: %s", BleErrorText().text);
        }
    }

    void RemoveHandlers() noexcept {
        value_changed_.End();
        status_changed_.End();
    }

    // All services that the system listed, also the unused ones: each keeps the connection.
    void CloseServices() noexcept {
        service_ = {};
        for (const Pointer<Service>& service : services_)
            CloseObject(service);
        services_.clear();
    }

    void ValueChanged(Handler& handler, ValueChangedEventArgs* arguments) noexcept {
        if (lost_) return;
        try {
            Pointer<Buffer> value;
            Call(arguments, &ValueChangedEventArgs::Table::get_CharacteristicValue,
                 value.Receive());
            handler.Notified(BytesOf(value));
        } catch (const BleError& error) {
            handler.NotificationFailed(error);
        }
    }

    void StatusChanged(Handler& handler) noexcept {
        ConnectionStatus status{};
        if (FAILED(device_.Get()->table->get_ConnectionStatus(device_.Get(), &status))) return;
        if (status == ConnectionStatus::kDisconnected && !lost_.exchange(true)) handler.Lost();
    }

    void ReadLargestPdu() { Call(session_, &Session::Table::get_MaxPduSize, &largest_pdu_); }

    // The system and the dongle may agree on larger PDUs at any time.
    bool Fits(std::size_t size) {
        if (size + kAttributeOverhead > largest_pdu_) ReadLargestPdu();
        return size + kAttributeOverhead <= largest_pdu_;
    }

    OsEvent* const give_up_;
    const Pointer<Device> device_;
    Items<Service> services_;
    Pointer<Service3> service_;  // the selected one
    Pointer<Session> session_;
    std::uint16_t largest_pdu_ = 0;  // as last read; only Subscribe and Write use it
    bool notifying_ = false;         // the descriptor has been written
    Items<Characteristic> characteristics_;
    Pointer<Characteristic> characteristic_;  // the selected one
    std::atomic<bool> lost_{false};
    EventHandler<Characteristic, ValueChangedEventArgs> value_changed_;
    EventHandler<Device, Inspectable> status_changed_;
};

}  // namespace

std::unique_ptr<BleDevice> OpenWinrtDevice(Runtime& runtime, OsEvent* give_up,
                                           std::uint64_t address) {
    const auto statics = runtime.Factory<DeviceStatics>(Device::kClass);
    Pointer<AsyncOperation<Device*>> operation;
    Call(statics, &DeviceStatics::Table::FromBluetoothAddressAsync, address, operation.Receive());
    Pointer<Device> device(Await(operation, GetWinrtLimits().connect_ms, give_up));
    if (!device) return nullptr;
    return std::make_unique<WinrtDevice>(give_up, std::move(device));
}

}  // namespace tarvik
