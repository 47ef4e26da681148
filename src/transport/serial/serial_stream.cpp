#include "transport/serial/serial_stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tarvik {

namespace {

constexpr PacketHeaderWire kSync = {kTypeSync, MIN_PKT_SIZE};

// Moves at most `wanted` bytes from the input to `to`; null drops them. Returns their number.
std::uint32_t Take(ByteView* input, std::uint8_t* to, std::uint32_t wanted) {
    const std::size_t count = std::min<std::size_t>(wanted, input->size);
    if (to != nullptr && count > 0) std::memcpy(to, input->data, count);
    input->data += count;
    input->size -= count;
    return static_cast<std::uint32_t>(count);
}

}  // namespace

void SerialStream::Reset() { *this = SerialStream(); }

StreamEvent SerialStream::Next(ByteView* input, PacketPtr* packet) {
    while (input->size > 0) {
        StreamEvent event = StreamEvent::kNeedsMore;
        if (!synced_) {
            event = Search(input);
        } else if (remaining_ == 0) {
            event = ReadHeader(input, packet);
        } else {
            event = ReadPayload(input, packet);
        }
        if (event != StreamEvent::kNeedsMore) return event;
    }
    return StreamEvent::kNeedsMore;
}

StreamEvent SerialStream::Search(ByteView* input) {
    while (input->size > 0) {
        std::memmove(window_, window_ + 1, sizeof window_ - 1);
        Take(input, window_ + sizeof window_ - 1, 1);
        if (std::memcmp(window_, &kSync, sizeof kSync) == 0) {
            synced_ = true;
            header_bytes_ = 0;
            return StreamEvent::kSynchronized;
        }
    }
    return StreamEvent::kNeedsMore;
}

StreamEvent SerialStream::ReadHeader(ByteView* input, PacketPtr* packet) {
    header_bytes_ += Take(input, window_ + header_bytes_, MIN_PKT_SIZE - header_bytes_);
    if (header_bytes_ < MIN_PKT_SIZE) return StreamEvent::kNeedsMore;
    header_bytes_ = 0;

    PacketHeaderWire header;
    std::memcpy(&header, window_, sizeof header);
    const std::uint32_t length = header.length;
    if (length < MIN_PKT_SIZE || length > MAX_PKT_SIZE) {
        // The window keeps these bytes: a SYNC header that begins among them is found.
        synced_ = false;
        invalid_length_ = length;
        return StreamEvent::kInvalidHeader;
    }
    packet_ = MakePacket(header.type, length);
    remaining_ = length - MIN_PKT_SIZE;
    if (remaining_ > 0 || !packet_) return StreamEvent::kNeedsMore;
    *packet = std::move(packet_);
    return StreamEvent::kPacket;
}

StreamEvent SerialStream::ReadPayload(ByteView* input, PacketPtr* packet) {
    std::uint8_t* to = packet_ ? packet_->Bytes() + packet_->length - remaining_ : nullptr;
    remaining_ -= Take(input, to, remaining_);
    if (remaining_ > 0 || !packet_) return StreamEvent::kNeedsMore;
    *packet = std::move(packet_);
    return StreamEvent::kPacket;
}

}  // namespace tarvik
