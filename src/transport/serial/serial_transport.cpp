// Dongles on USB serial ports.
#include <utility>

#include "link/packet_queue.h"
#include "platform/tick.h"
#include "support/config.h"
#include "support/log.h"
#include "transport/identification.h"
#include "transport/life_cycle.h"
#include "transport/serial/serial_connect.h"
#include "transport/serial/serial_limits.h"
#include "transport/serial/serial_state.h"
#include "transport/transport.h"

namespace tarvik {

namespace {

void SerialInit() {
    if (serial->initialized.exchange(true)) return;
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION SerialSessionLock at 0x%p", __func__,
        serial->session_lock.Address());
}

void SerialStart() {
    Log(kLogTrace, "[%s] Start", __func__);
    if (!CheckInitialized(serial->initialized, __func__, kCannotStart)) return;
    LockGuard hold(serial->start_lock);
    if (!config.useSerial || serial->running) return;

    const std::uint32_t generation = ++serial->generation;
    serial->connect_thread =
        StartThreadWithFlag(&serial->running, SerialConnectThreadFunc, "Tarvik SerialConnectThread",
                            reinterpret_cast<void*>(std::uintptr_t{generation}));
    if (serial->connect_thread == nullptr) {
        Log(kLogTrace, "[%s] CreateThread failed", __func__);
        return;
    }
    Log(kLogTrace, "[%s] Created Thread handle 0x%p (SerialConnectThreadFunc)", __func__,
        OsThreadHandle(serial->connect_thread));
    Log(kLogTrace, "[%s] Done", __func__);
}

void SerialStop() {
    LockGuard hold(serial->start_lock);
    serial->running = false;
    AnnounceSerialChange();
    OsThread* thread = std::exchange(serial->connect_thread, nullptr);
    if (thread != nullptr && !AwaitAndCloseThread(thread, GetSerialLimits().connect_thread_end_ms,
                                                  __func__, "SerialConnectThread")) {
        AbandonSerialPorts();
    }
    Log(kLogTrace, "[%s] Done", __func__);
}

void SerialDeinit() {
    if (!serial->initialized) return;
    SerialStop();
    // The lock itself lives as long as the library; only its use ends here.
    Log(kLogTrace, "[%s] Deleted CRITICAL_SECTION SerialSessionLock", __func__);
    serial->initialized = false;
    Log(kLogTrace, "[%s] Done", __func__);
}

// True: the dongle has identified itself and was reported.
bool IdentifyDongle(DeviceQueues* queues, ReportDevice report, void* context) {
    {
        LockGuard hold(queues->device_lock);
        if (!queues->available) return false;
        SendIdentify(queues);
        const PacketPtr login =
            WaitForLogin(queues, GetSerialLimits().login_wait_ms, nullptr, &serial->running);
        if (!login) return false;
        ReportLogin(kSerialTransport, *login, queues, report, context);
    }
    queues->device_changed.WakeOne();
    return true;
}

// What one scan has reported already.
struct Scan {
    bool reported[kSerialPortCount] = {};

    bool IsOpen(std::size_t number) const {
        return !reported[number] && serial->port_states[number] == PortState::kConnected;
    }
    bool HasOpen() const {
        for (std::size_t i = 0; i < kSerialPortCount; ++i) {
            if (IsOpen(i)) return true;
        }
        return false;
    }
};

// Sleeps until there is a port to ask, or the scan is over.
void AwaitOpenPort(const Scan& scan, std::uint64_t deadline) {
    LockGuard hold(serial->change_lock);
    for (;;) {
        const std::uint64_t now = TickMs();
        if (now >= deadline || !serial->running || scan.HasOpen()) return;
        serial->changed.Wait(serial->change_lock, static_cast<std::int32_t>(deadline - now));
    }
}

bool SerialUpdateDevices(std::uint32_t timeout_ms, ReportDevice report, void* context) {
    if (!CheckInitialized(serial->initialized, __func__)) return false;
    if (!serial->running) return false;
    ConsolePrint("[Serial] SerialUpdateDevices: scanning for devices\r\n");

    Scan scan;
    const std::uint64_t deadline = TickMs() + timeout_ms;
    while (serial->running && TickMs() < deadline) {
        for (std::size_t i = 0; i < kSerialPortCount && serial->running; ++i) {
            if (!scan.IsOpen(i)) continue;
            scan.reported[i] = IdentifyDongle(&serial->ports[i].queues, report, context);
        }
        AwaitOpenPort(scan, deadline);
    }

    ConsolePrint("[Serial] SerialUpdateDevices done\r\n");
    return true;
}

}  // namespace

const Transport kSerialTransport = {
    .name = "Serial",
    .id = 1,
    .interface_name = "USB",
    .connection_type = "USB",
    .module_type_id = 1,
    .mtu = kSerialMtu,
    .Init = SerialInit,
    .Deinit = SerialDeinit,
    .Start = SerialStart,
    .Stop = SerialStop,
    .UpdateDevices = SerialUpdateDevices,
    .AddressDevice = nullptr,
    .Disconnect = nullptr,
    .update_timeout_ms = 200,
    .connect_timeout_ms = 1000,
};

}  // namespace tarvik
