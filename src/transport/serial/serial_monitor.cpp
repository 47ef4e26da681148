#include <utility>

#include "link/fragmentation.h"
#include "link/packet_queue.h"
#include "support/log.h"
#include "transport/serial/serial_limits.h"
#include "transport/serial/serial_port_threads.h"

namespace tarvik {

namespace {

constexpr char kMonitorName[] = "SerialThreadFunc";

}  // namespace

void StopPort(SerialPort* port) {
    LockGuard hold(port->stop_lock);
    port->running = false;
    if (port->handle != nullptr) WakePort(port->handle);
    WakeQueueWaiters(&port->queues.tx);
    port->stopped.WakeAll();
}

void ReleaseQueues(SerialPort* port) {
    LockGuard hold(port->queues.device_lock);
    port->queues.available = false;
    FreeQueue(&port->queues.rx);
    FreeQueue(&port->queues.tx);
    // The next scan connects the port again if it is still there.
    PortState connected = PortState::kConnected;
    serial->port_states[static_cast<std::size_t>(port->number)].compare_exchange_strong(
        connected, PortState::kUnused);
}

void ClosePortHandle(SerialPort* port) {
    PortHandle* handle = nullptr;
    {
        LockGuard hold(port->stop_lock);
        handle = std::exchange(port->handle, nullptr);
    }
    // Without the lock: a driver may take its time, and a stop does not wait for it.
    if (handle != nullptr) ClosePort(handle);
}

void ForgetReceived(SerialPort* port) {
    port->stream.Reset();
    FragForget(&port->queues);
}

namespace {

void AwaitStop(SerialPort* port) {
    LockGuard hold(port->stop_lock);
    while (port->running)
        port->stopped.Wait(port->stop_lock, GetSerialLimits().monitor_poll_ms);
}

void CloseEndedThread(OsThread** thread) {
    OsThreadJoin(*thread, -1);
    OsThreadClose(*thread);
    *thread = nullptr;
}

}  // namespace

void SerialThreadFunc(void* argument) {
    auto* port = static_cast<SerialPort*>(argument);
    AwaitStop(port);
    Log(kLogTrace, "[%s] COM%d Instance is stopping, waiting for threads", kMonitorName,
        port->number);
    const std::int32_t limit_ms = GetSerialLimits().thread_end_ms;
    OsThreadJoin(port->transmit_thread, limit_ms);
    OsThreadJoin(port->receive_thread, limit_ms);
    Log(kLogTrace, "[%s] Closing Thread handle 0x%p (TxThread) for port %d", kMonitorName,
        OsThreadHandle(port->transmit_thread), port->number);
    Log(kLogTrace, "[%s] Closing Thread handle 0x%p (RxThread) for port %d", kMonitorName,
        OsThreadHandle(port->receive_thread), port->number);
    ReleaseQueues(port);

    // A thread that has exceeded its limit (held up by a paused console, for example) still uses
    // the port: the queues do not wait for it, but the port is closed only after it has ended.
    CloseEndedThread(&port->transmit_thread);
    CloseEndedThread(&port->receive_thread);
    ClosePortHandle(port);
    ForgetReceived(port);
    Log(kLogTrace, "[%s] COM%d Instance stopped", kMonitorName, port->number);
}

}  // namespace tarvik
