#pragma once

#include <cstdint>
#include <optional>

#include "link/packet.h"
#include "link/packet_queue.h"

// Sending and receiving raw CAN frames.
namespace tarvik {

// Reads a RAWC in place; lives no longer than the packet.
class RawFrameView {
public:
    static std::optional<RawFrameView> Of(const Packet& packet);  // none: too short

    std::uint32_t CanId() const { return can_id_; }
    // At most 8 bytes, and no more than the packet holds.
    ByteView Data() const { return data_; }

private:
    std::uint32_t can_id_ = 0;
    ByteView data_{};
};

// Sends a frame. If it has more than 8 bytes, the packet has their count but no data. Nothing is
// sent if the dongle is missing or not connected.
void SendRawFrame(DeviceQueues* queues, std::uint32_t can_id, ByteView data);

// Tells the dongle that a thread starts or stops taking raw frames from `rx`. Every thread sends
// both, whether or not others receive; the dongle decides what several of them mean. Does nothing
// if `queues` is null.
void SwitchRawReception(DeviceQueues* queues, bool on);

}  // namespace tarvik
