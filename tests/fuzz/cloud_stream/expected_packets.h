#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "link/packet.h"

namespace tarvik::fuzz {

using Bytes = std::vector<std::uint8_t>;

// The packets in the bytes of all binary messages together, read in the simplest way.
inline std::vector<Bytes> PacketsIn(const Bytes& stream) {
    std::vector<Bytes> packets;
    std::size_t at = 0;
    while (stream.size() - at >= MIN_PKT_SIZE) {
        const std::uint32_t length = LoadU32(&stream[at + 4]);
        if (length < MIN_PKT_SIZE || length > MAX_PKT_SIZE) {
            at += MIN_PKT_SIZE;
            continue;
        }
        if (length > stream.size() - at) break;
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
        packets.emplace_back(begin, begin + length);
        at += length;
    }
    return packets;
}

}  // namespace tarvik::fuzz
