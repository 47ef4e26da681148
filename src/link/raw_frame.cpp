#include "link/raw_frame.h"

#include <algorithm>
#include <cstring>

#include "link/fragmentation.h"

namespace tarvik {

std::optional<RawFrameView> RawFrameView::Of(const Packet& packet) {
    constexpr std::uint32_t kFixed = offsetof(RawFrameWire, data);
    if (packet.length < kFixed) return std::nullopt;
    const std::uint32_t present = std::min(packet.length - kFixed, kMaxRawFrameData);
    const std::uint32_t announced = packet.U16(offsetof(RawFrameWire, data_count));
    RawFrameView view;
    view.can_id_ = packet.U32(offsetof(RawFrameWire, can_id));
    view.data_ = {packet.Bytes() + kFixed, std::min(announced, present)};
    return view;
}

void SendRawFrame(DeviceQueues* queues, std::uint32_t can_id, ByteView data) {
    RawFrameWire frame{.type = kTypeRawc,
                       .length = 0,
                       .can_id = can_id,
                       .data_count = static_cast<std::uint16_t>(data.size),
                       .flags = kRawFrame,
                       .data = {}};
    if (data.size >= 1 && data.size <= kMaxRawFrameData) {
        std::memcpy(frame.data, data.data, data.size);
    }
    PacketPtr packet = BuildPacket(frame);
    FragSendPacket(queues, packet);
}

void SwitchRawReception(DeviceQueues* queues, bool on) {
    if (queues == nullptr) return;
    PacketPtr packet = BuildPacket(RawFrameWire{.type = kTypeRawc,
                                                .length = 0,
                                                .can_id = 0,
                                                .data_count = 0,
                                                .flags = on ? kRawReceptionOn : kRawReceptionOff,
                                                .data = {}});
    FragSendPacket(queues, packet);
}

}  // namespace tarvik
