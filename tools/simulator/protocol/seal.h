// CRYP: sealed packets of the dongle.

#pragma once

#include <array>

#include "protocol/wire.h"

namespace brennix {

// AES-256 in CBC mode with fourteen all-zero round keys: the schedule itself is zero, unlike the
// schedule of an all-zero key. These dongles were never given a key.
//
// The chaining value continues across packets and ports, because the host keeps one for its
// process; a new host process starts at zero.
class Seal {
public:
    // Returns a CRYP packet with `packet` inside, padded with zeros to whole blocks.
    Bytes Close(ByteSpan packet);
    void Reset() { chain_.fill(0); }

    static constexpr std::size_t kBlockSize = 16;
    // The longest packet that does not exceed kMaxPacketSize once sealed.
    static constexpr std::size_t kMaxInside =
        (kMaxPacketSize - kHeaderSize) / kBlockSize * kBlockSize;

private:
    std::array<std::uint8_t, kBlockSize> chain_{};
};

}  // namespace brennix
