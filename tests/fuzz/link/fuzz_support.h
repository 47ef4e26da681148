#pragma once

// Shared by the fuzz targets. Each takes an input as one packet or a sequence of packets, and ends
// the process if a requirement does not hold.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "link/packet_queue.h"

namespace tarvik::fuzz {

inline void Require(bool holds) {
    if (!holds) std::abort();
}

// Console and debug log lines are formatted as usual. Fuzz targets discard them.
void SilenceOutput();

// The input as the payload of a packet of this type.
inline PacketPtr PacketFrom(std::uint32_t type, const std::uint8_t* data, std::size_t size) {
    size = std::min<std::size_t>(size, MAX_PKT_SIZE - MIN_PKT_SIZE);
    PacketPtr packet = MakePacket(type, static_cast<std::uint32_t>(MIN_PKT_SIZE + size));
    Require(packet != nullptr);
    if (size > 0) std::memcpy(packet->Bytes() + MIN_PKT_SIZE, data, size);
    return packet;
}

struct Dongle : DeviceQueues {
    Dongle() {
        InitializeQueue(&rx);
        InitializeQueue(&tx);
        available = true;
    }
    ~Dongle() {
        available = false;
        FreeQueue(&rx);
        FreeQueue(&tx);
    }
};

}  // namespace tarvik::fuzz
