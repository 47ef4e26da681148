#pragma once

#include <cstdint>

#include "link/packet.h"

namespace tarvik {

enum class StreamEvent : std::uint8_t {
    kNeedsMore,      // all bytes are used up
    kSynchronized,   // the SYNC header was found: packets follow
    kInvalidHeader,  // a header with an impossible length: the SYNC header is searched again
    kPacket,         // a whole packet
};

// Cuts the byte stream of a port into packets. Knows nothing of ports and threads: bytes go in,
// events come out. The outcome does not depend on how the stream was cut into reads.
class SerialStream {
public:
    // For a new connection: nothing is left of the one before.
    void Reset();

    // Uses up bytes from the front of `input` until there is something to tell.
    // `packet` is set for kPacket only.
    StreamEvent Next(ByteView* input, PacketPtr* packet);

    bool synced() const { return synced_; }
    // Within a packet: its header is in, its payload is not.
    bool in_packet() const { return remaining_ > 0; }
    // What the header of the last kInvalidHeader announced.
    std::uint32_t invalid_length() const { return invalid_length_; }

private:
    StreamEvent Search(ByteView* input);
    StreamEvent ReadHeader(ByteView* input, PacketPtr* packet);
    StreamEvent ReadPayload(ByteView* input, PacketPtr* packet);

    bool synced_ = false;
    std::uint8_t window_[MIN_PKT_SIZE] = {};  // the last bytes of the search, or a header
    std::uint32_t header_bytes_ = 0;          // of the header, in window_
    PacketPtr packet_;                        // null while memory is out: its bytes are skipped
    std::uint32_t remaining_ = 0;             // bytes of the payload still to come
    std::uint32_t invalid_length_ = 0;
};

}  // namespace tarvik
