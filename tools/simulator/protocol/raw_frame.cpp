#include "protocol/raw_frame.h"

#include "protocol/layout.h"

namespace brennix {

Bytes MakeRawPacket(const RawFrame& frame) {
    Bytes payload;
    AppendU32(&payload, frame.id);
    AppendU16(&payload, static_cast<std::uint16_t>(frame.data.size()));
    AppendU16(&payload, kFrame);
    AppendBytes(&payload, frame.data);
    payload.resize(rawc::kSize - kHeaderSize, 0);
    return MakePacket(type::kRawc, payload);
}

// The first byte of a single frame is its length; its upper half, the kind of frame, is 0.
std::optional<ByteSpan> SingleFrameData(const RawFrame& frame) {
    if (frame.data.empty()) return std::nullopt;
    const std::size_t length = frame.data[0];
    if (length == 0 || length >= kMaxFrameBytes || length >= frame.data.size()) return std::nullopt;
    return ByteSpan(frame.data).subspan(1, length);
}

RawFrame FirstFrame(std::uint32_t id, ByteSpan message) {
    constexpr std::uint8_t kFirstOfSeveral = 0x10;
    RawFrame frame = {id, {}};
    if (message.size() < kMaxFrameBytes) {
        frame.data.push_back(static_cast<std::uint8_t>(message.size()));
        AppendBytes(&frame.data, message);
    } else {
        frame.data.push_back(
            static_cast<std::uint8_t>(kFirstOfSeveral | ((message.size() >> 8) & 0x0F)));
        frame.data.push_back(static_cast<std::uint8_t>(message.size() & 0xFF));
        AppendBytes(&frame.data, message.first(kMaxFrameBytes - 2));
    }
    return frame;
}

}  // namespace brennix
