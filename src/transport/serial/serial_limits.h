#pragma once

#include <cstdint>

namespace tarvik {

// How long the serial transport waits, and for what.
struct SerialLimits {
    // The connect thread.
    std::uint64_t settle_ms;            // for a new port to become ready; then it is tried as it is
    std::int32_t scan_pause_ms;         // between two scans for ports; a stop cuts it short
    std::uint32_t sync_wait_ms;         // for the answer to one SYNC
    std::int32_t failed_thread_end_ms;  // for a thread of a port that could not start all three
    std::int32_t monitor_end_ms;        // for one port's take-down before the next port's turn
    std::int32_t stop_ports_ms;         // for the take-down of all ports, at the end
    std::int32_t connect_thread_end_ms;  // for the connect thread; longer than stop_ports_ms

    // A port's threads.
    std::int32_t receive_poll_ms;   // until the receive thread looks again whether it should end
    std::int32_t transmit_poll_ms;  // the same for the transmit thread
    std::int32_t monitor_poll_ms;   // the same for the monitor thread
    std::int32_t write_ms;          // for writing one packet
    std::int32_t thread_end_ms;     // for each other thread, before the queues are released

    // UpdateDevices.
    std::uint32_t login_wait_ms;  // for the answer to one IDEN
};

const SerialLimits& GetSerialLimits();

}  // namespace tarvik
