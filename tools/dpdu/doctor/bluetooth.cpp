#include "doctor/bluetooth.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <string_view>

#include "doctor/surroundings.h"
#include "platform/tick.h"
#include "text/names.h"
#include "transport/ble/ble_radio.h"
#include "transport/ble/ble_text.h"

namespace dpdu {
namespace {

constexpr std::string_view kProductName = "Brennix";
constexpr std::uint32_t kListenMs = 2000;  // as long as the library's scan
constexpr std::uint32_t kLookMs = 50;

// Messages of the library begin with, or contain, these texts.
struct RadioMessage {
    const char* part;
    Diagnosis diagnosis;
};
constexpr RadioMessage kRadioMessages[] = {
    {"message bus", Diagnosis::kBluetoothBus},
    {"Bluetooth service is not running", Diagnosis::kBluetoothService},
    {"Bluetooth service has gone", Diagnosis::kBluetoothService},
    {"Bluetooth service does not answer", Diagnosis::kBluetoothSilent},
    {"no permission", Diagnosis::kBluetoothRights},
    {"has not consented", Diagnosis::kBluetoothRights},
    {"disabled by policy", Diagnosis::kBluetoothRights},
    {"there is no Bluetooth adapter", Diagnosis::kBluetoothAdapter},
    {"does not support it", Diagnosis::kBluetoothAdapter},
    {"switched off", Diagnosis::kBluetoothOff},
    {"is Bluetooth switched on?", Diagnosis::kBluetoothOff},
};

std::string FirstWordOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::string word;
    file >> word;
    return word;
}

enum class Blocked : std::uint8_t { kNo, kBySoftware, kByHardware };

// A hardware switch counts more: software cannot unblock it.
Blocked RadioBlock(const std::string& switches) {
    Blocked blocked = Blocked::kNo;
    std::error_code error;
    for (std::filesystem::directory_iterator at(PathOf(switches), error), end; !error && at != end;
         at.increment(error)) {
        if (FirstWordOf(at->path() / "type") != "bluetooth") continue;
        if (FirstWordOf(at->path() / "hard") == "1") return Blocked::kByHardware;
        if (FirstWordOf(at->path() / "soft") == "1") blocked = Blocked::kBySoftware;
    }
    return blocked;
}

Finding BlockedFinding(Blocked blocked) {
    if (blocked == Blocked::kByHardware) {
        return Found(Diagnosis::kBluetoothBlocked,
                     {{"switch", "a switch or key of the computer"},
                      {"command", "switch it on there, or in the firmware's set-up"}});
    }
    return Found(Diagnosis::kBluetoothBlocked,
                 {{"switch", "software"}, {"command", "rfkill unblock bluetooth"}});
}

// What a scan hears. Called on threads of the system.
class Listener final : public tarvik::BleScan::Handler {
public:
    void Advertised(const tarvik::BleAdvertisement& advertisement) noexcept override {
        const std::string_view name(reinterpret_cast<const char*>(advertisement.name.data()),
                                    advertisement.name.size());
        if (name != kProductName) return;
        const std::lock_guard hold(lock_);
        dongles_[advertisement.address] = advertisement.rssi;
    }
    void Failed(const tarvik::BleError& error) noexcept override {
        const std::lock_guard hold(lock_);
        if (failure_.empty()) failure_ = error.message();
    }

    // "A0:B1:C2:D3:E4:F5 (-58 dBm)", separated by commas; empty: none was heard.
    std::string Dongles() const {
        const std::lock_guard hold(lock_);
        std::string list;
        for (const auto& [address, rssi] : dongles_) {
            list += list.empty() ? "" : ", ";
            list += tarvik::BleAddressText(address).text;
            list += " (" + std::to_string(rssi) + " dBm)";
        }
        return list;
    }
    std::string Failure() const {
        const std::lock_guard hold(lock_);
        return failure_;
    }

private:
    mutable std::mutex lock_;
    std::map<std::uint64_t, std::int32_t> dongles_;
    std::string failure_;
};

void Listen(tarvik::BleRadio* radio, Listener* listener, const std::atomic<bool>& stop) {
    const tarvik::BleRadioThread inside(*radio);
    const auto scan = radio->CreateScan(*listener);
    scan->Start();
    const std::uint64_t deadline = tarvik::TickMs() + kListenMs;
    for (std::uint64_t now = tarvik::TickMs(); now < deadline && !stop; now = tarvik::TickMs()) {
        const auto left = static_cast<std::uint32_t>(deadline - now);
        tarvik::SleepMs(std::min(left, kLookMs));
        scan->Poll(left);
    }
    scan->Stop();
}

Finding ListeningFinding(const tarvik::Config& config, const Listener& listener) {
    const std::string dongles = listener.Dongles();
    if (!dongles.empty()) return Found(Diagnosis::kBluetoothDongle, {{"list", dongles}});
    const std::string failure = listener.Failure();
    if (!failure.empty()) return RadioFinding(failure);
    const bool is_only = !config.useSerial && !config.useCloud;
    return Found(is_only ? Diagnosis::kBluetoothNone : Diagnosis::kBluetoothNoneOthers,
                 {{"seconds", std::to_string(kListenMs / 1000)}});
}

// Null: reported.
std::unique_ptr<tarvik::BleRadio> OpenRadio(CheckRun* run) {
    try {
        return tarvik::OpenBleRadio();
    } catch (const tarvik::BleError& error) {
        run->Add(Found(Diagnosis::kBluetoothLibrary, {{"error", error.message()}}));
        return nullptr;
    }
}

}  // namespace

Finding RadioFinding(const std::string& message, const std::string& switches) {
    Diagnosis diagnosis = Diagnosis::kBluetoothFailed;
    for (const RadioMessage& row : kRadioMessages) {
        if (message.find(row.part) == message.npos) continue;
        diagnosis = row.diagnosis;
        break;
    }
    const bool may_be_blocked =
        diagnosis == Diagnosis::kBluetoothOff || diagnosis == Diagnosis::kBluetoothAdapter;
    const Blocked blocked = may_be_blocked ? RadioBlock(switches) : Blocked::kNo;
    if (blocked != Blocked::kNo) return BlockedFinding(blocked);
    return Found(diagnosis, {{"error", message}});
}

void CheckBluetooth(const tarvik::Config& config, CheckRun* run) {
    if (!config.useBle) return;
    const auto radio = OpenRadio(run);
    if (!radio) return;
    Listener listener;
    try {
        Listen(radio.get(), &listener, run->Stop());
    } catch (const tarvik::BleError& error) {
        run->Add(RadioFinding(error.message()));
        return;
    }
    if (!run->Stop()) run->Add(ListeningFinding(config, listener));
}

}  // namespace dpdu
