#include "transport/ble/ble_scan.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "link/packet.h"
#include "link/packet_queue.h"
#include "platform/tick.h"
#include "support/config.h"
#include "support/log.h"
#include "transport/ble/ble_connect.h"
#include "transport/ble/ble_connection.h"
#include "transport/ble/ble_limits.h"
#include "transport/ble/ble_state.h"
#include "transport/ble/ble_text.h"
#include "transport/identification.h"
#include "transport/life_cycle.h"

namespace tarvik {
namespace {

constexpr char kProductName[] = "Brennix";
constexpr int kWaitTimedOut = 0x102;  // the number that the console shows for a time-out

// ---------------------------------------------------------------- advertisements

class AdvertisementHandler final : public BleScan::Handler {
public:
    void Advertised(const BleAdvertisement& advertisement) noexcept override;
    void Failed(const BleError& error) noexcept override;
};

bool IsProductName(std::span<const std::uint8_t> name) {
    return name.size() == sizeof kProductName - 1 &&
           std::memcmp(name.data(), kProductName, name.size()) == 0;
}

// Under BleCriticalSection.
void NoteAdvertisement(const BleAdvertisement& advertisement) {
    if (ble->scan == nullptr) return;
    const std::uint64_t address = advertisement.address;
    const auto& discovered = ble->discovered;
    if (std::find(discovered.begin(), discovered.end(), address) != discovered.end()) return;
    if (!IsProductName(advertisement.name)) return;
    ble->discovered.push_back(address);
    const BleAddressText shown(address);
    ConsolePrint("[BLE] Found Brennix: %s (RSSI: %d dBm)\n", shown.text, advertisement.rssi);
    Log(kLogTrace, "[BLE] Found Brennix device: %s, RSSI: %d dBm", shown.text, advertisement.rssi);
    ble->pending.push_back(address);
}

void AdvertisementHandler::Advertised(const BleAdvertisement& advertisement) noexcept {
    try {
        const LockGuard hold(ble->BleCriticalSection);
        NoteAdvertisement(advertisement);
    } catch (...) {
        Log(kLogTrace, "[BLE] Error in advertisement callback: %s", BleErrorText().text);
    }
}

void AdvertisementHandler::Failed(const BleError& error) noexcept {
    Log(kLogTrace, "[BLE] Error in advertisement callback: %s", BleErrorText(error).text);
}

// ---------------------------------------------------------------- scanning

// Accepts advertisements while it lives.
class ScanMark {
public:
    explicit ScanMark(const BleScan* scan) { Set(scan); }
    ~ScanMark() { Set(nullptr); }
    ScanMark(const ScanMark&) = delete;
    ScanMark& operator=(const ScanMark&) = delete;

private:
    static void Set(const BleScan* scan) {
        const LockGuard hold(ble->BleCriticalSection);
        ble->scan = scan;
    }
};

void ClearScanData() {
    const LockGuard hold(ble->BleCriticalSection);
    ConsolePrint("[BLE] Clearing previous scan data (%d discovered, %d pending)\n",
                 static_cast<int>(ble->discovered.size()), static_cast<int>(ble->pending.size()));
    ble->discovered.clear();
    ble->pending.clear();
}

void Listen(BleScan* scan, std::uint32_t duration_ms) {
    const std::uint64_t deadline = TickMs() + duration_ms;
    const auto left_ms = [deadline] {
        const std::uint64_t now = TickMs();
        return now < deadline ? static_cast<std::uint32_t>(deadline - now) : 0;
    };
    while (!ble->closing && left_ms() > 0) {
        SleepMs(std::min(left_ms(), GetBleLimits().close_poll_ms));
        scan->Poll(left_ms());
    }
}

BleList<std::uint64_t> TakePending() {
    const LockGuard hold(ble->BleCriticalSection);
    return std::exchange(ble->pending, {});
}

BleList<std::uint64_t> ScanForDevices(std::uint32_t timeout_ms) {
    ClearScanData();
    AdvertisementHandler handler;
    const std::unique_ptr<BleScan> scan = ble->radio->CreateScan(handler);
    const ScanMark mark(scan.get());
    ConsolePrint("[BLE] Starting watcher...\n");
    scan->Start();
    const int status = scan->Status();
    ConsolePrint("[BLE] Watcher status: %d\n", status);
    Log(kLogTrace, "[BLE] Started BLE scanning, status: %d", status);
    Listen(scan.get(), timeout_ms);
    scan->Stop();
    BleList<std::uint64_t> found = TakePending();
    const int count = static_cast<int>(found.size());
    ConsolePrint("[BLE] Scan complete, found %d device(s)\n", count);
    Log(kLogTrace, "[BLE] Stopped BLE scanning, found %d potential devices", count);
    return found;
}

// ---------------------------------------------------------------- asking dongles

// Where a scan reports its dongles, and how many it has reported.
struct ScanReport {
    ReportDevice report;
    void* context;
    int added = 0;

    void Add(const LoginRecord& login, DeviceQueues* queues) {
        report(context, {kBleTransportId, login, queues});
        ++added;
    }
};

PacketPtr AskForLogin(DeviceQueues* queues) {
    SendIdentify(queues);
    return WaitForLogin(queues, GetBleLimits().login_wait_ms, &ble->closing, nullptr);
}

using BleConnections = BleList<std::shared_ptr<BleConnection>>;

void AskConnected(const BleConnections& connected, ScanReport* out) {
    ConsolePrint("[BLE] Checking %d already-connected device(s)...\n",
                 static_cast<int>(connected.size()));
    for (const auto& connection : connected) {
        const PacketPtr answer = AskForLogin(connection->queues());
        if (answer == nullptr) continue;
        const LoginRecord login = LoginFromPacket(*answer);
        ConsolePrint("[BLE] Already connected: '%s' at %s\n", PrintableDeviceName(login).text,
                     BleAddressText(connection->address()).text);
        out->Add(login, connection->queues());
    }
}

// A BUSY does not end the wait for a login; it is looked for afterwards.
void LogNoLogin(DeviceQueues* queues) {
    const PacketPtr busy(
        QueueFindFilterInternal(&queues->rx, 0, MatchType, {kTypeBusy, kNoTag}, true));
    if (busy != nullptr) {
        ConsolePrint("[BLE] Device busy\n");
        Log(kLogTrace, "[BLE] Device returned BUSY");
        return;
    }
    ConsolePrint("[BLE] No login response received\n");
    Log(kLogTrace, "[BLE] Timeout waiting for login packet");
}

void AskNew(DeviceQueues* queues, ScanReport* out) {
    const PacketPtr answer = AskForLogin(queues);
    if (answer == nullptr) {
        LogNoLogin(queues);
        return;
    }
    const LoginRecord login = LoginFromPacket(*answer);
    ConsolePrint("[BLE] Received: %s\n", LoginText(login).text);
    out->Add(login, queues);
    ConsolePrint("[BLE] Connected successfully\n");
    Log(kLogTrace, "[BLE] Successfully connected and added device");
}

// ---------------------------------------------------------------- connecting

bool AwaitCompletion(const BleConnectRequest& request) {
    const std::uint64_t deadline = TickMs() + GetBleLimits().connect_wait_ms;
    while (!ble->closing) {
        const std::uint64_t now = TickMs();
        const std::uint64_t left = now < deadline ? deadline - now : 0;
        const std::uint64_t poll_ms = GetBleLimits().close_poll_ms;
        const auto step = static_cast<std::int32_t>(std::min(left, poll_ms));
        if (OsEventWait(request.completed, step)) return true;
        if (left == 0) break;
    }
    return false;
}

void ConnectNew(std::uint64_t address, ScanReport* out) {
    const BleAddressText shown(address);
    ConsolePrint("[BLE] Connecting to %s...\n", shown.text);
    Log(kLogTrace, "[BLE] Connecting to device: %s", shown.text);
    const auto request = RequestBleConnection(address);
    if (request == nullptr) return;
    if (!AwaitCompletion(*request)) {
        if (ble->closing) return;
        // The attempt continues. The next scan picks up its result.
        ConsolePrint("[BLE] Connection timeout (wait result: %d)\n", kWaitTimedOut);
        Log(kLogTrace, "[BLE] Connection timeout");
        return;
    }
    EndBleRequest(request, GetBleLimits().thread_end_ms);
    ConsolePrint("[BLE] Thread completed, success=%d, queues=%p\n", request->success ? 1 : 0,
                 static_cast<void*>(request->queues));
    if (!request->success) {
        ConsolePrint("[BLE] Connection failed\n");
        Log(kLogTrace, "[BLE] Failed to connect to device");
        return;
    }
    AskNew(request->queues, out);
}

// ---------------------------------------------------------------- cleaning up

BleConnections TakeLost() {
    const LockGuard hold(ble->BleCriticalSection);
    auto& connected = ble->connected;
    const auto first_lost = std::stable_partition(connected.begin(), connected.end(),
                                                  [](const auto& each) { return !each->lost(); });
    BleConnections lost(first_lost, connected.end());
    connected.erase(first_lost, connected.end());
    return lost;
}

void CloseLost() {
    for (const auto& connection : TakeLost())
        connection->Close();
}

// Attempts that completed after their scan had stopped waiting.
void EndCompletedAttempts() {
    BleList<std::shared_ptr<BleConnectRequest>> attempts;
    {
        const LockGuard hold(ble->BleCriticalSection);
        attempts = ble->attempts;
    }
    for (const auto& attempt : attempts) {
        if (OsEventWait(attempt->completed, 0))
            EndBleRequest(attempt, GetBleLimits().thread_end_ms);
    }
}

// ---------------------------------------------------------------- one scan

BleConnections ConnectedNow() {
    const LockGuard hold(ble->BleCriticalSection);
    return ble->connected;
}

bool Contains(const BleConnections& connected, std::uint64_t address) {
    return std::any_of(connected.begin(), connected.end(),
                       [address](const auto& each) { return each->address() == address; });
}

// A dongle that is connected and still advertises is not connected again. If an earlier scan's
// attempt connects it meanwhile, ConnectNew finds it through that attempt. A radio that advertises
// under ever new addresses does not hold up the scan for as long as it likes.
void AskAndConnect(const BleList<std::uint64_t>& found, ScanReport* out) {
    const std::uint64_t deadline = TickMs() + GetBleLimits().scan_connect_ms;
    const BleConnections connected = ConnectedNow();
    AskConnected(connected, out);
    for (const std::uint64_t address : found) {
        if (ble->closing) return;
        if (Contains(connected, address)) continue;
        if (TickMs() >= deadline) {
            Log(kLogTrace, "[BLE] Connecting takes too long, the other devices are left out");
            return;
        }
        ConnectNew(address, out);
    }
}

void FindDongles(std::uint32_t timeout_ms, ScanReport* out) {
    const BleRadioThread inside(*ble->radio);
    CloseLost();  // a dongle does not advertise while its previous connection is open
    const BleList<std::uint64_t> found = ScanForDevices(timeout_ms);
    EndCompletedAttempts();
    CloseLost();
    AskAndConnect(found, out);
}

}  // namespace

bool BleUpdateDevices(std::uint32_t timeout_ms, ReportDevice report, void* context) {
    if (!config.useBle) return false;
    const LockGuard hold(ble->scan_lock);
    if (!CheckInitialized(ble->initialized && !ble->closing, "BLE")) return false;
    ConsolePrint("[BLE] Scanning for devices (timeout: %d ms)...\n", static_cast<int>(timeout_ms));
    Log(kLogTrace, "[BLE] BleUpdateDevices: scanning for devices (timeout: %d ms)",
        static_cast<int>(timeout_ms));
    ScanReport out{report, context};
    try {
        FindDongles(timeout_ms, &out);
    } catch (...) {
        Log(kLogTrace, "[BLE] BLE scanning failed: %s", BleErrorText().text);
        return false;
    }
    ConsolePrint("[BLE] Device scan complete: %d device(s) added\n", out.added);
    Log(kLogTrace, "[BLE] BleUpdateDevices complete, added %d devices", out.added);
    return true;
}

}  // namespace tarvik
