// The bytes of binary WebSocket messages. The first byte is the size of the messages in which the
// rest arrives. The packets must be the same as from a single message, and those that a simple
// reading of the rules gives.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "transport/cloud/websocket_receive.h"

using namespace tarvik;

namespace {

using Bytes = std::vector<std::uint8_t>;

void Require(bool holds) {
    if (!holds) std::abort();
}

struct Messages {
    const Bytes* stream;
    std::size_t size;  // of each but the last
    std::size_t at = 0;
};

std::uint32_t Receive(void* context, void* data, std::uint32_t size, std::uint32_t* bytes,
                      MessageKind* kind) {
    auto* messages = static_cast<Messages*>(context);
    const std::size_t left = messages->stream->size() - messages->at;
    if (left == 0) return kErrorConnectionBroken;
    const std::size_t in_message = messages->size - messages->at % messages->size;
    const std::size_t count = std::min({std::size_t{size}, left, in_message});
    std::memcpy(data, messages->stream->data() + messages->at, count);
    messages->at += count;
    *bytes = static_cast<std::uint32_t>(count);
    *kind = count == in_message ? MessageKind::kBinary : MessageKind::kBinaryFragment;
    return 0;
}

std::vector<Bytes> InMessagesOf(const Bytes& stream, std::size_t size) {
    Messages messages = {&stream, size};
    std::vector<Bytes> packets;
    for (;;) {
        PacketPtr packet;
        if (!ReceiveWebSocketPacket({Receive, &messages}, &packet)) return packets;
        if (packet == nullptr) continue;
        packets.emplace_back(packet->Bytes(), packet->Bytes() + packet->length);
    }
}

std::vector<Bytes> Expected(const Bytes& stream) {
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const Bytes stream(data + 1, data + size);
    const std::vector<Bytes> expected = Expected(stream);
    Require(InMessagesOf(stream, std::max<std::size_t>(stream.size(), 1)) == expected);
    Require(InMessagesOf(stream, data[0] + std::size_t{1}) == expected);
    return 0;
}
