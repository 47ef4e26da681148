#pragma once

#include <atomic>
#include <cstdint>

#include "link/packet_queue.h"

namespace tarvik {

// What the channel waits for, and how it logs that it did not get it.
struct ExpectedAnswer {
    std::uint32_t type;
    std::uint32_t shortest;  // a shorter one counts as missing
    const char* missing;     // the whole line
    const char* unexpected;  // what precedes the letters of another type
};

// Waits up to the handshake's time limit, or until *abort is set (seen within 100 ms; may be null).
// Null: none came, which is logged.
PacketPtr WaitForAnswer(DeviceQueues* queues, const ExpectedAnswer& expected,
                        const std::atomic<bool>* abort);

}  // namespace tarvik
