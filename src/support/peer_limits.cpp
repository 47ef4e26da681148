#include "support/peer_limits.h"

namespace tarvik {

const PeerLimits& GetPeerLimits() {
    static constexpr PeerLimits kLimits = {
        .queue_bytes = std::uint64_t{16} << 20,
        .least_packet_bytes = 64,
        .log_line_bytes = std::size_t{64} << 10,
        .scan_overtime_ms = 1000,
    };
    return kLimits;
}

}  // namespace tarvik
