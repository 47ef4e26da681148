// The transport for dongles on Bluetooth LE.
#include <utility>

#include "platform/tick.h"
#include "support/config.h"
#include "support/log.h"
#include "transport/ble/ble_connect.h"
#include "transport/ble/ble_connection.h"
#include "transport/ble/ble_limits.h"
#include "transport/ble/ble_scan.h"
#include "transport/ble/ble_state.h"
#include "transport/ble/ble_text.h"
#include "transport/life_cycle.h"
#include "transport/transport.h"

namespace tarvik {
namespace {

// To the console and to the debug log.
void Announce(const char* line) {
    ConsolePrint("%s\n", line);
    Log(kLogTrace, "%s", line);
}

// ---------------------------------------------------------------- init and start

void BleInit() {
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

void BleStart() {
    if (!config.useBle) return;
    if (!CheckInitialized(ble->initialized, "BLE", kCannotStart)) return;
    Announce("[BLE] BLE subsystem started");
}

// Deliberate: connections and their threads continue.
void BleStop() {
    if (!config.useBle) return;
    ConsolePrint("[BLE] BLE subsystem stopped (connections remain active)\n");
    Log(kLogTrace, "[BLE] BLE subsystem stopped");
}

// ---------------------------------------------------------------- deinit

// From now on no running attempt lists its dongle.
BleList<std::shared_ptr<BleConnectRequest>> AbandonAttempts() {
    const LockGuard hold(ble->BleCriticalSection);
    for (const auto& attempt : ble->attempts)
        attempt->abandoned = true;
    return ble->attempts;
}

void GiveUpAttempts() {
    const auto attempts = AbandonAttempts();
    if (attempts.empty()) return;
    ble->radio->CancelConnecting();
    const std::uint64_t deadline = TickMs() + GetBleLimits().attempts_end_ms;
    for (const auto& attempt : attempts) {
        const std::uint64_t now = TickMs();
        EndBleRequest(attempt, now < deadline ? static_cast<std::int32_t>(deadline - now) : 0);
    }
}

void CloseConnections() {
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

void BleDeinit() {
    if (!ble->initialized) return;
    BleStop();
    ble->closing = true;  // ends a scan on another thread
    const LockGuard hold(ble->scan_lock);
    GiveUpAttempts();
    CloseConnections();
    ble->radio = nullptr;
    // A fixed text: the lock itself is never deleted.
    Log(kLogTrace, "[BLE] Deleted CRITICAL_SECTION BleCriticalSection");
    ble->initialized = false;
    ble->closing = false;
    Announce("[BLE] BLE subsystem deinitialized");
}

}  // namespace

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
