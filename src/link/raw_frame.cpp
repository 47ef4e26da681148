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

static PacketPtr MakeRawPacket(std::uint16_t flags) {
    PacketPtr packet = MakePacket(kTypeRawc, sizeof(RawFrameWire));
    if (packet != nullptr) packet->SetU16(offsetof(RawFrameWire, flags), flags);
    return packet;
}

void SendRawFrame(DeviceQueues* queues, std::uint32_t can_id, ByteView data) {
    PacketPtr packet = MakeRawPacket(kRawFrame);
    if (packet == nullptr) return;
    packet->SetU32(offsetof(RawFrameWire, can_id), can_id);
    packet->SetU16(offsetof(RawFrameWire, data_count), static_cast<std::uint16_t>(data.size));
    if (data.size >= 1 && data.size <= kMaxRawFrameData) {
        std::memcpy(packet->Bytes() + offsetof(RawFrameWire, data), data.data, data.size);
    }
    FragSendPacket(queues, packet);
}

void SwitchRawReception(DeviceQueues* queues, bool on) {
    if (queues == nullptr) return;
    PacketPtr packet = MakeRawPacket(on ? kRawReceptionOn : kRawReceptionOff);
    FragSendPacket(queues, packet);
}

}  // namespace tarvik
