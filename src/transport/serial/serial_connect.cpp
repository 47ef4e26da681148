#include "transport/serial/serial_connect.h"

#include <cstdio>
#include <cstring>

#include "link/packet.h"
#include "link/packet_queue.h"
#include "platform/tick.h"
#include "support/log.h"
#include "transport/serial/port_discovery.h"
#include "transport/serial/serial_limits.h"
#include "transport/serial/serial_port_threads.h"
#include "transport/serial/serial_state.h"

namespace tarvik {

namespace {

constexpr int kSyncTries = 3;

constexpr char kScanName[] = "SerialConnect";
constexpr char kConnectName[] = "ConnectSerialPort";
constexpr char kThreadName[] = "SerialConnectThreadFunc";

// How the log names a monitor thread that is closed: of a port that disappeared, or at the end.
constexpr char kMonitorKind[] = "MonitorThread";
constexpr char kMonitorEndKind[] = "MonitorThread error cleanup";

// The ports that the system lists. Guarded by the session lock, as is all that a scan works on.
struct PresentPort {
    bool present;
    PortReadiness readiness;
    char path[64];
};
PresentPort present_ports[kSerialPortCount];

// What scans remember of a port while it is listed.
struct PortHistory {
    bool is_known;
    bool is_held_back;
    std::uint64_t settling_since_ms;  // when it was first seen, or last ready
    bool is_to_be_explained;          // the log does not say yet why it is not ready
    bool could_not_be_opened;         // the reason that it failed for
    bool has_been_unready;            // since it failed
};
PortHistory port_histories[kSerialPortCount];

std::atomic<PortState>& StateOf(std::int32_t number) {
    return serial->port_states[static_cast<std::size_t>(number)];
}

SerialPort& PortOf(std::int32_t number) { return serial->ports[static_cast<std::size_t>(number)]; }

// ---------------------------------------------------------------- connecting a port

void ResetPort(SerialPort* port, std::int32_t number) {
    DeviceQueues& queues = port->queues;
    port->number = number;
    port->stream.Reset();
    port->running = true;
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION for Queues at 0x%p (port %d)", kConnectName,
        queues.device_lock.Address(), number);
    InitializeQueue(&queues.rx);
    InitializeQueue(&queues.tx);
    queues.mtu = kSerialMtu;
}

bool OpenPortHandle(SerialPort* port, const char* path) {
    PortHandle* handle = OpenPort(path);
    if (handle == nullptr) {
        ConsolePrint("Failed to open serial port: %i\n", OsLastError());
        return false;
    }
    LockGuard hold(port->stop_lock);
    port->handle = handle;
    return true;
}

void CleanUpThread(OsThread** thread, const char* which, const SerialPort& port) {
    if (*thread == nullptr) return;
    OsThreadJoin(*thread, GetSerialLimits().failed_thread_end_ms);
    Log(kLogTrace, "[%s] Closing Thread handle 0x%p (%s error cleanup) for port %d", kConnectName,
        OsThreadHandle(*thread), which, port.number);
    OsThreadJoin(*thread, -1);  // without limit: it uses the port, which is closed next
    OsThreadClose(*thread);
    *thread = nullptr;
}

struct PortThread {
    OsThread* SerialPort::*handle;
    OsThreadEntry entry;
    const char* entry_name;
    const char* description;
    const char* printed_name;
};
// The monitor thread starts last: it expects the other two.
constexpr PortThread kPortThreads[] = {
    {&SerialPort::receive_thread, SerialRxThreadFunc, "SerialRxThreadFunc",
     "Tarvik SerialRxThreadFunc", "RX thread"},
    {&SerialPort::transmit_thread, SerialTxThreadFunc, "SerialTxThreadFunc",
     "Tarvik SerialTxThreadFunc", "TX thread"},
    {&SerialPort::monitor_thread, SerialThreadFunc, "SerialThreadFunc", "Tarvik SerialThreadFunc",
     "thread"},
};

bool StartPortThreads(SerialPort* port) {
    for (const PortThread& thread : kPortThreads) {
        OsThread* started = OsThreadStart(thread.entry, port, thread.description);
        port->*thread.handle = started;
        if (started == nullptr) {
            ConsolePrint("Failed to create %s: %i\n", thread.printed_name, OsLastError());
            return false;
        }
        Log(kLogTrace, "[%s] Created Thread handle 0x%p (%s) for port %d", kConnectName,
            OsThreadHandle(started), thread.entry_name, port->number);
    }
    return true;
}

// Takes down a port that has no monitor thread to do it.
void AbandonPort(SerialPort* port) {
    StopPort(port);
    CleanUpThread(&port->transmit_thread, "TxThread", *port);
    CleanUpThread(&port->receive_thread, "RxThread", *port);
    ClosePortHandle(port);
    ForgetReceived(port);
    ReleaseQueues(port);
}

// False: the port has closed itself. The queues become available with the first SYNC: a link from
// before a replug keeps sending, and the dongle must receive the SYNC before that.
bool SendSync(SerialPort* port) {
    LockGuard hold(port->queues.device_lock);
    if (!port->running) return false;
    PacketPtr sync = MakePacket(kTypeSync, MIN_PKT_SIZE);
    // The transmit thread waits for this lock, so nothing that answers the SYNC comes too early.
    LockGuard hold_transmission(port->queues.tx.lock);
    if (sync) EnqueueTransmitPacket(&port->queues, sync);
    port->queues.available = true;
    return true;
}

bool Synchronize(SerialPort* port, std::uint32_t generation) {
    for (int i = 0; i < kSyncTries && IsSerialRunning(generation); ++i) {
        ConsolePrint("COM%d: Send SYNC\n", port->number);
        if (!SendSync(port)) return false;
        const PacketPtr answer =
            WaitForPacket(&port->queues, kTypeSync, GetSerialLimits().sync_wait_ms, kNoTag, nullptr,
                          &serial->running);
        if (answer && answer->type == kTypeSync) return true;
    }
    return false;
}

// The port may close itself at any moment: if its queues are already released, it is unused again.
void MarkConnected(SerialPort* port) {
    LockGuard hold(port->queues.device_lock);
    StateOf(port->number) = port->queues.available ? PortState::kConnected : PortState::kUnused;
}

// Opens the port, starts its threads and synchronises with the dongle. Under the session lock.
void ConnectSerialPort(std::int32_t number, const char* path, std::uint32_t generation) {
    SerialPort& port = PortOf(number);
    ResetPort(&port, number);
    const bool opened = OpenPortHandle(&port, path);
    if (!opened || !StartPortThreads(&port)) {
        AbandonPort(&port);
        port_histories[number].could_not_be_opened = !opened;
        StateOf(number) = PortState::kFailed;
        return;
    }
    if (!Synchronize(&port, generation)) {
        StateOf(number) = PortState::kFailed;
        if (IsSerialRunning(generation)) {
            ConsolePrint("COM%d: Device did not respond\n", number);
            Log(kLogTrace, "[%s] COM%d: No response from device. Closing again.", kConnectName,
                number);
        }
        StopPort(&port);  // its monitor thread closes everything
        return;
    }
    ConsolePrint("COM%d: Connected successfully\n", number);
    MarkConnected(&port);
    AnnounceSerialChange();
}

// ---------------------------------------------------------------- scanning

void NotePresentPort(void*, const ListedPort& listed) {
    PresentPort& port = present_ports[listed.number];
    if (port.present || std::strlen(listed.path) >= sizeof port.path) return;
    FormatText(port.path, sizeof port.path, "%s", listed.path);
    port.readiness = listed.readiness;
    port.present = true;
}

// Closes the monitor thread if it ends within limit_ms. False: it still runs, and the port must not
// be touched.
bool CloseMonitor(SerialPort* port, std::int32_t limit_ms, const char* log_name, const char* kind) {
    if (port->monitor_thread == nullptr) return true;
    if (!OsThreadJoin(port->monitor_thread, limit_ms)) return false;
    Log(kLogTrace, "[%s] Closing Thread handle 0x%p (%s) for port %d", log_name,
        OsThreadHandle(port->monitor_thread), kind, port->number);
    OsThreadClose(port->monitor_thread);
    port->monitor_thread = nullptr;
    return true;
}

// A port that is not ready yet is left alone. One whose driver does not run cannot be opened; any
// other is tried as it is once its time to become ready is over.
bool IsHeldBack(std::int32_t number) {
    const PortReadiness readiness = present_ports[number].readiness;
    if (readiness == PortReadiness::kReady) return false;
    PortHistory& history = port_histories[number];
    if (!history.is_held_back) {
        Log(kLogTrace, "[%s]   COM%d is not ready, held back", kScanName, number);
        history.is_held_back = true;
    }
    if (readiness == PortReadiness::kStopped) return true;
    if (TickMs() - history.settling_since_ms < GetSerialLimits().settle_ms) return true;
    history.is_to_be_explained = true;
    return false;
}

// A port that could not be opened is tried again when it has been unready since: its driver was
// restarted, or the user was given access.
void NoteReadiness(std::int32_t number) {
    PortHistory& history = port_histories[number];
    const bool ready = present_ports[number].readiness == PortReadiness::kReady;
    if (ready || !history.is_known) {
        history.settling_since_ms = TickMs();
        history.is_held_back = false;
    }
    history.is_known = true;
    if (StateOf(number) != PortState::kFailed || !history.could_not_be_opened) return;
    if (!ready) {
        history.has_been_unready = true;
    } else if (history.has_been_unready) {
        Log(kLogTrace, "[%s]   COM%d has become ready, set to unused", kScanName, number);
        StateOf(number) = PortState::kUnused;
    }
}

void NoteArrival(std::int32_t number) {
    // While the last connection is still being closed, the next scan is soon enough.
    if (StateOf(number) != PortState::kUnused) return;
    if (!CloseMonitor(&PortOf(number), 0, kScanName, kMonitorKind)) return;
    if (IsHeldBack(number)) return;
    port_histories[number].could_not_be_opened = false;
    port_histories[number].has_been_unready = false;
    ConsolePrint("COM%d: New device detected\n", number);
    StateOf(number) = PortState::kDetected;
}

void NoteDeparture(std::int32_t number) {
    port_histories[number] = {};
    const PortState state = StateOf(number);
    if (state == PortState::kUnused) return;
    SerialPort& port = PortOf(number);
    if (state == PortState::kConnected) {
        Log(kLogTrace, "[%s]   COM%d Still connected, wait for cleanup", kScanName, number);
        StopPort(&port);
        CloseMonitor(&port, GetSerialLimits().monitor_end_ms, kScanName, kMonitorKind);
    } else {
        Log(kLogTrace, "[%s]   COM%d got disconnected, set to unused", kScanName, number);
    }
    StateOf(number) = PortState::kUnused;
}

// One scan: notes the ports that appeared or disappeared and connects the new ones.
void SerialConnect(std::uint32_t generation) {
    LockGuard hold(serial->session_lock);
    std::memset(present_ports, 0, sizeof present_ports);
    const bool listed = DiscoverPorts(NotePresentPort, nullptr);
    if (!IsSerialRunning(generation)) return;
    if (!listed) {
        ConsolePrint("Failed to get device information set\n");
        return;
    }
    for (std::int32_t number = 0; number < kSerialPortCount; ++number) {
        if (present_ports[number].present) {
            NoteReadiness(number);
            NoteArrival(number);
        } else {
            NoteDeparture(number);
        }
        CloseMonitor(&PortOf(number), 0, kScanName, kMonitorKind);
    }
    for (std::int32_t number = 0; number < kSerialPortCount && IsSerialRunning(generation);
         ++number) {
        if (!present_ports[number].present || StateOf(number) != PortState::kDetected) continue;
        ConsolePrint("COM%d: Connecting to new device\n", number);
        ConnectSerialPort(number, present_ports[number].path, generation);
    }
}

// Takes a port off those that are to be explained. Below 0: there is none.
std::int32_t TakePortToExplain(std::uint32_t generation, PresentPort* port) {
    LockGuard hold(serial->session_lock);
    if (!IsSerialRunning(generation)) return -1;
    for (std::int32_t number = 0; number < kSerialPortCount; ++number) {
        if (!port_histories[number].is_to_be_explained) continue;
        port_histories[number].is_to_be_explained = false;
        *port = present_ports[number];
        return number;
    }
    return -1;
}

// Without the session lock: for the name of a group the system may ask a server, and the connect
// thread of a later start must not wait for that.
void ExplainUnreadyPorts(std::uint32_t generation) {
    PresentPort port;
    for (;;) {
        const std::int32_t number = TakePortToExplain(generation, &port);
        if (number < 0) return;
        char advice[256];
        AdviseOnPort({number, port.path, port.readiness}, advice, sizeof advice);
        const char* reason = port.readiness == PortReadiness::kNoAccess
                                 ? "This process has no access to"
                                 : "The system has not finished setting up";
        Log(kLogError, "[%s] COM%d: %s %s: %s", kScanName, number, reason, port.path, advice);
    }
}

// ---------------------------------------------------------------- the connect thread

void PauseBetweenScans(std::uint32_t generation) {
    const auto pause_ms = static_cast<std::uint64_t>(GetSerialLimits().scan_pause_ms);
    const std::uint64_t deadline = TickMs() + pause_ms;
    LockGuard hold(serial->change_lock);
    for (;;) {
        const std::uint64_t now = TickMs();
        if (!IsSerialRunning(generation) || now >= deadline) return;
        serial->changed.Wait(serial->change_lock, static_cast<std::int32_t>(deadline - now));
    }
}

void StopConnectedPort(std::int32_t number) {
    SerialPort& port = PortOf(number);
    if (StateOf(number).exchange(PortState::kUnused) != PortState::kConnected) return;
    Log(kLogTrace, "[%s]   Waiting for COM%d Thread", kThreadName, number);
    StopPort(&port);
    CloseMonitor(&port, GetSerialLimits().monitor_end_ms, kThreadName, kMonitorEndKind);
}

void StopAllPorts() {
    for (std::int32_t number = 0; number < kSerialPortCount; ++number) {
        port_histories[number] = {};
        StopConnectedPort(number);
    }
    // Ports whose handshake was cut short, and ports that exceeded monitor_end_ms: no thread of the
    // library may run after its end.
    const auto limit_ms = static_cast<std::uint64_t>(GetSerialLimits().stop_ports_ms);
    const std::uint64_t deadline = TickMs() + limit_ms;
    for (SerialPort& port : serial->ports) {
        if (port.monitor_thread == nullptr) continue;
        StopPort(&port);
        const std::uint64_t now = TickMs();
        CloseMonitor(&port, now < deadline ? static_cast<std::int32_t>(deadline - now) : 0,
                     kThreadName, kMonitorEndKind);
    }
}

}  // namespace

void AbandonSerialPorts() {
    for (SerialPort& port : serial->ports) {
        if (port.running) StopPort(&port);
    }
}

void SerialConnectThreadFunc(void* argument) {
    const auto generation = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(argument));
    {
        // What a connect thread left that could not end in time.
        LockGuard hold(serial->session_lock);
        if (IsSerialRunning(generation)) StopAllPorts();
    }
    while (IsSerialRunning(generation)) {
        SerialConnect(generation);
        ExplainUnreadyPorts(generation);
        PauseBetweenScans(generation);
    }
    Log(kLogTrace, "[%s] Waiting for all Threads", kThreadName);
    {
        LockGuard hold(serial->session_lock);
        if (serial->generation == generation) StopAllPorts();
    }
    Log(kLogTrace, "[%s] Exiting", kThreadName);
}

}  // namespace tarvik
