#pragma once

#include <cstdint>

namespace tarvik {

// Packets and bytes sent and received by all transports.
struct PacketCounters {
    std::uint64_t sent_packets, sent_bytes;
    std::uint64_t received_packets, received_bytes;
};
void CountSentPacket(std::uint32_t bytes);
void CountReceivedPacket(std::uint32_t bytes);
PacketCounters ReadPacketCounters();
void* PacketCountersLockAddress();  // for log lines

}  // namespace tarvik
