#pragma once

#include <cstdint>
#include <optional>

#include "link/packet.h"
#include "link/packet_queue.h"

// Raw CAN frames, as they stand on the wire and as threads send and receive them.
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

// Sends a frame. One of more than 8 bytes goes out with its count and without its data. Nothing is
// sent to a dongle that is missing or not connected.
void SendRawFrame(DeviceQueues* queues, std::uint32_t can_id, ByteView data);

// Tells the dongle that a thread begins or ends taking raw frames from `rx`. Every thread says
// both, whoever else receives: what several of them mean is the dongle's affair. Does nothing
// without `queues`.
void SwitchRawReception(DeviceQueues* queues, bool on);

}  // namespace tarvik
