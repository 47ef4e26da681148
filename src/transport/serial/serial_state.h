#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/thread.h"
#include "transport/serial/port_names.h"
#include "transport/serial/serial_port.h"
#include "transport/serial/serial_stream.h"

namespace tarvik {

inline constexpr std::uint32_t kSerialMtu = 4096;

enum class PortState : std::uint32_t {
    kUnused = 0,
    kDetected = 1,  // seen by a scan, not connected yet
    kFailed = 2,    // did not connect; left alone until it disappears or can be opened
    kConnected = 3,
};

// One port, from its connection to the end of its three threads. The record lives as long as the
// library: links keep a pointer to its queues after the dongle has gone.
struct SerialPort {
    std::int32_t number = 0;
    std::atomic<bool> running{false};  // its threads run; StopPort clears it
    OsLock stop_lock;                  // guards `handle`; comes before a queue's lock
    OsCondition stopped;               // woken when `running` is cleared
    PortHandle* handle = nullptr;      // set while its threads run; they use it without the lock
    SerialStream stream;               // used by the receive thread while it runs
    // The connect thread starts all three. The monitor thread ends the other two and closes them;
    // its own handle is closed by the connect thread, after its end.
    OsThread* monitor_thread = nullptr;
    OsThread* receive_thread = nullptr;
    OsThread* transmit_thread = nullptr;
    DeviceQueues queues;
};

struct SerialState {
    std::atomic<bool> initialized{false};
    std::atomic<bool> running{false};
    std::atomic<std::uint32_t> generation{0};  // counts the starts
    OsLock start_lock;  // held while the connect thread is started and while it is awaited
    OsThread* connect_thread = nullptr;  // guarded by start_lock
    OsLock session_lock;                 // one scan at a time; comes before a device lock

    OsLock change_lock;   // held only to look at what `changed` announces
    OsCondition changed;  // woken when a port has become connected, and when `running` is cleared

    // Changed by the connect thread, and by the monitor threads from connected to unused (under
    // the device lock).
    std::array<std::atomic<PortState>, kSerialPortCount> port_states{};
    std::array<SerialPort, kSerialPortCount> ports;
};
extern Immortal<SerialState> serial;

// False for a connect thread of an earlier start too: it may have been held up by the system beyond
// the time that a stop allows.
inline bool IsSerialRunning(std::uint32_t generation) {
    return serial->running && serial->generation == generation;
}

// Wakes the sleepers on `changed`; called after the change.
void AnnounceSerialChange();

}  // namespace tarvik
