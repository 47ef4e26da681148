#pragma once

#include <cstdint>

#include "link/packet.h"

namespace tarvik {

enum class StreamEvent : std::uint8_t {
    kNeedsMore,      // all bytes are consumed
    kSynchronized,   // the SYNC header was found: packets follow
    kInvalidHeader,  // a header with an impossible length: the search for SYNC restarts
    kPacket,         // a whole packet
};

// Cuts the byte stream of a port into packets. Bytes go in, events come out, however the stream was
// cut into reads. Uses no port and no thread.
class SerialStream {
public:
    // For a new connection: forgets the one before.
    void Reset();

    // Consumes bytes from the front of `input` until there is an event.
    // `packet` is set for kPacket only.
    StreamEvent Next(ByteView* input, PacketPtr* packet);

    bool synced() const { return synced_; }
    // A header has arrived, but not yet all of its payload.
    bool in_packet() const { return remaining_ > 0; }
    // The length in the header of the last kInvalidHeader.
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
