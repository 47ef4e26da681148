// What a WebSocket client of either system returns: parts of messages. The input is a list of
// messages: what it is, the size of the parts in which it arrives less one, its length as two
// bytes, its bytes. The packets must be those in the bytes of all binary messages before the first
// that is something else.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

#include "fuzz/cloud_stream/expected_packets.h"
#include "transport/cloud/websocket_receive.h"

using namespace tarvik;
using namespace tarvik::fuzz;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

enum class Content : std::uint8_t { kBinary, kText, kClose, kError };

struct WebSocketMessage {
    Content content;
    std::size_t part;  // at least 1
    Bytes bytes;
};

std::vector<WebSocketMessage> MessagesIn(std::span<const std::uint8_t> input) {
    constexpr std::size_t kHead = 4;
    std::vector<WebSocketMessage> messages;
    while (input.size() >= kHead) {
        // Mostly binary.
        const std::uint8_t what = input[0];
        const auto content = what < 0xF0 ? Content::kBinary : static_cast<Content>(what % 4);
        const std::size_t part = std::size_t{1} + input[1];
        const std::size_t wanted = input[2] + std::size_t{256} * input[3];
        input = input.subspan(kHead);
        const auto bytes = input.first(std::min(wanted, input.size()));
        messages.push_back({content, part, {bytes.begin(), bytes.end()}});
        input = input.subspan(bytes.size());
    }
    return messages;
}

struct Source {
    std::vector<WebSocketMessage> messages;
    std::size_t next = 0;   // message
    std::size_t taken = 0;  // bytes of it
};

MessageKind KindOf(Content content, bool whole) {
    if (content == Content::kClose) return MessageKind::kClose;
    if (content == Content::kText) return whole ? MessageKind::kText : MessageKind::kTextFragment;
    return whole ? MessageKind::kBinary : MessageKind::kBinaryFragment;
}

std::uint32_t Receive(void* context, void* data, std::uint32_t size, std::uint32_t* bytes,
                      MessageKind* kind) {
    auto* source = static_cast<Source*>(context);
    Require(size > 0);
    if (source->next == source->messages.size()) return kErrorConnectionBroken;
    const WebSocketMessage& message = source->messages[source->next];
    if (message.content == Content::kError) return kErrorTimeout;
    const std::size_t left = message.bytes.size() - source->taken;
    const std::size_t count = std::min({std::size_t{size}, left, message.part});
    if (count > 0) std::memcpy(data, message.bytes.data() + source->taken, count);
    source->taken += count;
    *bytes = static_cast<std::uint32_t>(count);
    *kind = KindOf(message.content, count == left);
    if (count == left) {
        ++source->next;
        source->taken = 0;
    }
    return 0;
}

std::vector<Bytes> Received(const std::vector<WebSocketMessage>& messages) {
    Source source{messages};
    std::vector<Bytes> packets;
    for (;;) {
        PacketPtr packet;
        if (!ReceiveWebSocketPacket({Receive, &source}, &packet)) return packets;
        if (packet == nullptr) continue;
        packets.emplace_back(packet->Bytes(), packet->Bytes() + packet->length);
    }
}

Bytes StreamIn(const std::vector<WebSocketMessage>& messages) {
    Bytes stream;
    for (const WebSocketMessage& message : messages) {
        if (message.content != Content::kBinary) break;
        stream.insert(stream.end(), message.bytes.begin(), message.bytes.end());
    }
    return stream;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<WebSocketMessage> messages = MessagesIn({data, size});
    Require(Received(messages) == PacketsIn(StreamIn(messages)));
    return 0;
}
