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

}  // namespace brennix
