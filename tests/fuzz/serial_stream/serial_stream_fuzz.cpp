// The byte stream of a serial port. The first byte is the size of the pieces in which the rest
// arrives. The outcome must be that of a single read, and that of a second implementation.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "transport/serial/serial_stream.h"

using namespace tarvik;

namespace {

using Bytes = std::vector<std::uint8_t>;

void Require(bool holds) {
    if (!holds) std::abort();
}

// What happened: 'S', 'I' with the length, 'P' with the packet's bytes.
struct Event {
    char kind;
    std::uint32_t length;
    Bytes bytes;
    bool operator==(const Event&) const = default;
};
using Events = std::vector<Event>;

Events InPieces(const Bytes& stream, std::size_t piece) {
    Events events;
    SerialStream cutter;
    for (std::size_t at = 0; at < stream.size(); at += piece) {
        ByteView input = {stream.data() + at, std::min(piece, stream.size() - at)};
        for (;;) {
            PacketPtr packet;
            const StreamEvent event = cutter.Next(&input, &packet);
            Require((packet != nullptr) == (event == StreamEvent::kPacket));
            if (event == StreamEvent::kNeedsMore) break;
            if (event == StreamEvent::kSynchronized) events.push_back({'S', 0, {}});
            if (event == StreamEvent::kInvalidHeader) {
                events.push_back({'I', cutter.invalid_length(), {}});
            }
            if (packet == nullptr) continue;
            const std::uint8_t* bytes = packet->Bytes();
            events.push_back({'P', packet->length, Bytes(bytes, bytes + packet->length)});
        }
        Require(input.size == 0);
    }
    return events;
}

// The second implementation, which sees the whole stream at once.
Events Expected(const Bytes& stream) {
    const std::uint8_t sync[8] = {0x43, 0x4E, 0x59, 0x53, 8, 0, 0, 0};
    Events events;
    bool synced = false;
    std::size_t search = 0;  // where the next SYNC may begin
    std::size_t at = 0;      // the next packet
    while (true) {
        if (!synced) {
            while (search + 8 <= stream.size() && std::memcmp(&stream[search], sync, 8) != 0) {
                ++search;
            }
            if (search + 8 > stream.size()) return events;
            events.push_back({'S', 0, {}});
            synced = true;
            at = search + 8;
        }
        if (at + 8 > stream.size()) return events;
        const std::uint32_t length = LoadU32(&stream[at + 4]);
        if (length < MIN_PKT_SIZE || length > MAX_PKT_SIZE) {
            events.push_back({'I', length, {}});
            synced = false;
            search = at + 1;
            continue;
        }
        if (length > stream.size() - at) return events;
        const auto begin = stream.begin() + static_cast<std::ptrdiff_t>(at);
        events.push_back({'P', length, Bytes(begin, begin + length)});
        at += length;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const Bytes stream(data + 1, data + size);
    const std::size_t piece = data[0] + std::size_t{1};
    const Events expected = Expected(stream);
    Require(InPieces(stream, std::max<std::size_t>(stream.size(), 1)) == expected);
    Require(InPieces(stream, piece) == expected);
    return 0;
}
