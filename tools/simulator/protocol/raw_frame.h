// Frames on the bus that are no diagnostic requests, and the RAWC packets that carry them.

#pragma once

#include <cstdint>

#include "protocol/wire.h"

namespace brennix {

constexpr std::size_t kMaxFrameBytes = 8;

// The flags of a RAWC packet: what it is.
enum RawFlags : std::uint16_t { kFrame = 0, kReceptionOn = 1, kReceptionOff = 2 };

// Nothing on the wire tells 11 from 29 bit identifiers: the number alone counts.
struct RawFrame {
    std::uint32_t id = 0;
    Bytes data;  // at most kMaxFrameBytes
};

Bytes MakeRawPacket(const RawFrame& frame);

}  // namespace brennix
