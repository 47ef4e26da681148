#pragma once

#include <cstddef>
#include <cstdint>

namespace tarvik {

// What one dongle or relay can make the library keep, and for how long it can hold up a scan. No
// honest one reaches any of these; docs/security.md lists them.
struct PeerLimits {
    std::uint64_t queue_bytes;         // of the packets in a queue
    std::uint32_t least_packet_bytes;  // a shorter packet counts as much: its bookkeeping
    std::size_t log_line_bytes;        // of a dongle's log line; a longer one is broken
    std::uint32_t scan_overtime_ms;    // of a scan, after the longest time that it may wait
};
const PeerLimits& GetPeerLimits();

// Packets that one connection can have under reassembly at a time.
inline constexpr std::size_t kReassemblySlots = 4;

}  // namespace tarvik
