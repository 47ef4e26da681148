#include "transport/ble/winrt_scan.h"

#include <string>
#include <utility>

#include "transport/ble/winrt_buffer.h"
#include "transport/ble/winrt_delegate.h"

namespace tarvik {

using namespace winrt;

namespace {

constexpr std::uint8_t kCompleteLocalName = 0x09;

// The values of BluetoothError that a user can do something about.
struct ErrorName {
    std::int32_t value;
    const char* text;
};
constexpr ErrorName kErrorNames[] = {
    {1, "there is no Bluetooth radio, or it is switched off"},
    {2, "another program uses the radio"},
    {5, "Bluetooth is disabled by policy"},
    {6, "the radio does not support it"},
    {7, "Bluetooth is switched off"},
    {8, "the user has not consented"},
};

BleError ScanEnded(std::int32_t error) {
    for (const ErrorName& row : kErrorNames) {
        if (row.value == error) return BleError(std::string("The scan was aborted: ") + row.text);
    }
    return BleError("The scan was aborted: error " + std::to_string(error));
}

// The buffer with the complete local name. Empty: the advertisement has none.
Pointer<Buffer> FindName(ReceivedEventArgs* arguments) {
    Pointer<Advertisement> advertisement;
    Call(arguments, &ReceivedEventArgs::Table::get_Advertisement, advertisement.Receive());
    Pointer<Vector<DataSection>> sections;
    Call(advertisement, &Advertisement::Table::get_DataSections, sections.Receive());
    std::uint32_t count = 0;
    Call(sections, &Vector<DataSection>::Table::get_Size, &count);
    Pointer<Buffer> name;
    for (std::uint32_t i = 0; i < count && !name; ++i) {
        Pointer<DataSection> section;
        Call(sections, &Vector<DataSection>::Table::GetAt, i, section.Receive());
        std::uint8_t type = 0;
        Call(section, &DataSection::Table::get_DataType, &type);
        if (type == kCompleteLocalName) {
            Call(section, &DataSection::Table::get_Data, name.Receive());
        }
    }
    return name;
}

class WinrtScan final : public BleScan {
public:
    WinrtScan(Runtime& runtime, Handler& handler)
        : handler_(handler),
          watcher_(runtime.Activate<AdvertisementWatcher>(AdvertisementWatcher::kClass)) {
        // The name may be in the answer to a scan request, which passive scans do not send.
        Call(watcher_, &AdvertisementWatcher::Table::put_ScanningMode, ScanningMode::kActive);
        received_.Begin(watcher_, &AdvertisementWatcher::Table::add_Received,
                        &AdvertisementWatcher::Table::remove_Received,
                        AdvertisementWatcher::kReceivedIid,
                        [this](ReceivedEventArgs* arguments) { Received(arguments); });
        stopped_.Begin(watcher_, &AdvertisementWatcher::Table::add_Stopped,
                       &AdvertisementWatcher::Table::remove_Stopped,
                       AdvertisementWatcher::kStoppedIid,
                       [this](StoppedEventArgs* arguments) { Stopped(arguments); });
    }
    ~WinrtScan() override { End(); }

    void Start() override {
        Call(watcher_, &AdvertisementWatcher::Table::Start);
        started_ = true;
        if (Status() == static_cast<std::int32_t>(WatcherStatus::kAborted)) {
            throw BleError("The system cannot scan; is Bluetooth switched on?");
        }
    }

    std::int32_t Status() override {
        WatcherStatus status{};
        Call(watcher_, &AdvertisementWatcher::Table::get_Status, &status);
        return static_cast<std::int32_t>(status);
    }

    void Stop() override { Check(End()); }

private:
    HRESULT End() noexcept {
        const bool was_started = std::exchange(started_, false);
        const HRESULT result = was_started ? watcher_.Get()->table->Stop(watcher_.Get()) : S_OK;
        received_.End();
        stopped_.End();
        return result;
    }

    void Received(ReceivedEventArgs* arguments) noexcept {
        try {
            BleAdvertisement advertisement{};
            Call(arguments, &ReceivedEventArgs::Table::get_BluetoothAddress,
                 &advertisement.address);
            std::int16_t rssi = 0;
            Call(arguments, &ReceivedEventArgs::Table::get_RawSignalStrengthInDBm, &rssi);
            advertisement.rssi = rssi;
            const Pointer<Buffer> name = FindName(arguments);
            if (name) advertisement.name = BytesOf(name);
            handler_.Advertised(advertisement);
        } catch (const BleError& error) {
            handler_.Failed(error);
        }
    }

    // Also called after Stop, then without an error.
    void Stopped(StoppedEventArgs* arguments) noexcept {
        try {
            std::int32_t error = 0;
            Call(arguments, &StoppedEventArgs::Table::get_Error, &error);
            if (error != 0) handler_.Failed(ScanEnded(error));
        } catch (const BleError& error) {
            handler_.Failed(error);
        }
    }

    Handler& handler_;
    const Pointer<AdvertisementWatcher> watcher_;
    bool started_ = false;
    EventHandler<AdvertisementWatcher, ReceivedEventArgs> received_;
    EventHandler<AdvertisementWatcher, StoppedEventArgs> stopped_;
};

}  // namespace

std::unique_ptr<BleScan> CreateWinrtScan(Runtime& runtime, BleScan::Handler& handler) {
    return std::make_unique<WinrtScan>(runtime, handler);
}

}  // namespace tarvik
