// CRYP: sealed packets of the dongle.

#pragma once

#include <array>

#include "protocol/wire.h"

namespace brennix {

// AES-256 in CBC mode with fourteen rounds whose keys are all zero: the schedule itself, which is
// not the schedule that an all-zero key expands to. No key was ever put into these dongles.
//
// The chaining value runs on from packet to packet and from port to port, as the host keeps a
// single one for its process; it starts at zero with a new host process.
class Seal {
public:
    // `packet` becomes the inside of a CRYP packet, filled with zeros to whole blocks.
    Bytes Close(ByteSpan packet);
    void Reset() { chain_.fill(0); }

    static constexpr std::size_t kBlockSize = 16;
    // The longest packet that, sealed, is no longer than packets may be.
    static constexpr std::size_t kMaxInside =
        (kMaxPacketSize - kHeaderSize) / kBlockSize * kBlockSize;

private:
    std::array<std::uint8_t, kBlockSize> chain_{};
};

}  // namespace brennix
