// Dongles that are reached over Bluetooth LE.
#include <utility>

#include "platform/tick.h"
#include "support/config.h"
#include "support/log.h"
#include "transport/ble/ble_connect.h"
#include "transport/ble/ble_connection.h"
#include "transport/ble/ble_scan.h"
#include "transport/ble/ble_state.h"
#include "transport/transport.h"

namespace tarvik {

static constexpr std::uint64_t kAttemptsEndMs = 5000;  // for all attempts together

Immortal<BleState> ble;

BleAddressText::BleAddressText(std::uint64_t address) {
    const auto byte = [address](unsigned shift) {
        return static_cast<unsigned>(address >> shift & 0xFF);
    };
    FormatText(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", byte(40), byte(32), byte(24),
               byte(16), byte(8), byte(0));
}

BleErrorText::BleErrorText(const BleError& error) {
    FormatText(text, sizeof text, "%s", error.message().c_str());
}

BleErrorText::BleErrorText() {
    try {
        throw;
    } catch (const BleError& error) {
        FormatText(text, sizeof text, "%s", error.message().c_str());
    } catch (...) {
        FormatText(text, sizeof text, "Unknown error");
    }
}

// A line for the console and for the debug log.
static void Announce(const char* line) {
    ConsolePrint("%s\n", line);
    Log(kLogTrace, "%s", line);
}

// ---------------------------------------------------------------- start and end

static void BleInit() {
    if (!config.useBle) return;
    const LockGuard hold(ble->scan_lock);
    if (ble->initialized) return;
    try {
        ble->radio = OpenBleRadio();
    } catch (...) {
        Log(kLogTrace, "[BLE] Failed to initialize BLE: %s", BleErrorText().text);
        return;
    }
    ble->initialized = true;
    Announce("[BLE] BLE subsystem initialized");
}

static void BleStart() {
    if (!config.useBle) return;
    if (!ble->initialized) {
        Log(kLogTrace, "[BLE] Not initialized, cannot start");
        return;
    }
    Announce("[BLE] BLE subsystem started");
}

// Deliberate: connections and their threads are not touched.
static void BleStop() {
    if (!config.useBle) return;
    ConsolePrint("[BLE] BLE subsystem stopped (connections remain active)\n");
    Log(kLogTrace, "[BLE] BLE subsystem stopped");
}

// No attempt that is under way will list its dongle any more.
static BleList<std::shared_ptr<BleConnectRequest>> AbandonAttempts() {
    const LockGuard hold(ble->BleCriticalSection);
    for (const auto& attempt : ble->attempts)
        attempt->abandoned = true;
    return ble->attempts;
}

static void GiveUpAttempts() {
    const auto attempts = AbandonAttempts();
    if (attempts.empty()) return;
    ble->radio->CancelConnecting();
    const std::uint64_t deadline = TickMs() + kAttemptsEndMs;
    for (const auto& attempt : attempts) {
        const std::uint64_t now = TickMs();
        EndBleRequest(attempt, now < deadline ? static_cast<std::int32_t>(deadline - now) : 0);
    }
}

static void CloseConnections() {
    BleList<std::shared_ptr<BleConnection>> connected;
    {
        const LockGuard hold(ble->BleCriticalSection);
        connected = std::exchange(ble->connected, {});
        ble->discovered = {};
        ble->pending = {};
    }
    for (const auto& connection : connected)
        connection->Close();
}

static void BleDeinit() {
    if (!ble->initialized) return;
    BleStop();
    ble->closing = true;  // a scan of another thread ends now
    const LockGuard hold(ble->scan_lock);
    GiveUpAttempts();
    CloseConnections();
    ble->radio = nullptr;
    // The lock itself lives as long as the library; only its use ends here.
    Log(kLogTrace, "[BLE] Deleted CRITICAL_SECTION BleCriticalSection");
    ble->initialized = false;
    ble->closing = false;
    Announce("[BLE] BLE subsystem deinitialized");
}

const Transport kBleTransport = {
    .name = "BLE",
    .id = kBleTransportId,
    .interface_name = "Bluetooth",
    .connection_type = "BLE",
    .module_type_id = 1,
    .mtu = kBleMtu,
    .Init = BleInit,
    .Deinit = BleDeinit,
    .Start = BleStart,
    .Stop = BleStop,
    .UpdateDevices = BleUpdateDevices,
    .AddressDevice = nullptr,
    .Disconnect = nullptr,
    .update_timeout_ms = 2000,
    .connect_timeout_ms = 3000,
};

}  // namespace tarvik
