// CAN frames that are not diagnostic requests, and the RAWC packets that carry them.

#pragma once

#include <cstdint>
#include <optional>

#include "protocol/wire.h"

namespace brennix {

constexpr std::size_t kMaxFrameBytes = 8;

// The flags of a RAWC packet: what it means.
enum RawFlags : std::uint16_t { kFrame = 0, kReceptionOn = 1, kReceptionOff = 2 };

// The wire does not distinguish 11 and 29 bit identifiers; only the number counts.
struct RawFrame {
    std::uint32_t id = 0;
    Bytes data;  // at most kMaxFrameBytes
};

Bytes MakeRawPacket(const RawFrame& frame);

// The message in a frame that holds a whole one (ISO 15765-2, normal addressing); nullopt for any
// other frame.
std::optional<ByteSpan> SingleFrameData(const RawFrame& frame);
// The frame that carries the message or, if it does not fit one, its beginning.
RawFrame FirstFrame(std::uint32_t id, ByteSpan message);

}  // namespace brennix
