#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "link/comm_response.h"
#include "link/packet_queue.h"
#include "unit/test_support.h"

namespace tarvik::test {

using Bytes = std::vector<std::uint8_t>;

// A dongle's queues, connected while the object lives. The receive queue holds what the dongle has
// sent, the transmit queue what is sent to it.
struct Dongle : DeviceQueues {
    Dongle() {
        InitializeQueue(&rx);
        InitializeQueue(&tx);
        available = true;
    }
    ~Dongle() {
        available = false;
        FreeQueue(&rx);
        FreeQueue(&tx);
    }
};

inline Bytes BytesOf(const PacketPtr& packet) {
    if (packet == nullptr) return {};
    return {packet->Bytes(), packet->Bytes() + packet->length};
}

inline PacketPtr PacketOf(std::uint32_t type, const Bytes& payload) {
    PacketPtr packet = MakePacket(type, static_cast<std::uint32_t>(MIN_PKT_SIZE + payload.size()));
    if (!payload.empty())
        std::memcpy(packet->Bytes() + MIN_PKT_SIZE, payload.data(), payload.size());
    return packet;
}

inline PacketPtr PacketWithText(std::uint32_t type, const std::string& text) {
    return PacketOf(type, Bytes(text.begin(), text.end()));
}

inline PacketPtr ResponseTo(std::uint32_t req_id, const Bytes& data = {},
                            std::uint32_t wait_time = 12) {
    PacketPtr packet = MakePacket(kTypeCres, static_cast<std::uint32_t>(20 + data.size()));
    packet->SetU32(8, wait_time);
    packet->SetU32(12, static_cast<std::uint32_t>(data.size()));
    packet->SetU32(16, req_id);
    if (!data.empty()) std::memcpy(packet->Bytes() + 20, data.data(), data.size());
    return packet;
}

inline PacketPtr BusyFor(std::uint32_t req_id, const std::string& reason = "") {
    PacketPtr packet = MakePacket(kTypeBusy, static_cast<std::uint32_t>(12 + reason.size()));
    packet->SetU32(8, req_id);
    if (!reason.empty()) std::memcpy(packet->Bytes() + 12, reason.data(), reason.size());
    return packet;
}

struct MultiAnswer {
    std::uint32_t id;
    Bytes data;
};

inline PacketPtr MultiResponseTo(std::uint32_t req_id, const std::vector<MultiAnswer>& answers) {
    Bytes entries;
    for (const MultiAnswer& answer : answers) {
        Bytes entry(8);
        StoreU32(entry.data(), answer.id);
        StoreU32(entry.data() + 4, static_cast<std::uint32_t>(answer.data.size()));
        entry.insert(entry.end(), answer.data.begin(), answer.data.end());
        entry.resize((entry.size() + 7) / 8 * 8);
        entries.insert(entries.end(), entry.begin(), entry.end());
    }
    PacketPtr packet = ResponseTo(req_id, entries, kWaitTimeMulti);
    packet->SetU32(12, static_cast<std::uint32_t>(answers.size()));
    return packet;
}

// Hands a packet to the library as a transport's receiving thread does.
inline void Receive(DeviceQueues* queues, PacketPtr packet) {
    ASSERT_TRUE(EnqueueReceivedPacket(queues, packet));
}

inline void Append(PacketQueue* queue, PacketPtr packet, std::uint32_t tag = kNoTag) {
    ASSERT_TRUE(AppendPacket(queue, packet, tag));
}

inline std::uint32_t Sleepers(PacketQueue* queue) {
    const LockGuard hold(queue->lock);
    return queue->sleepers;
}

inline std::uint64_t Queued(PacketQueue* queue) {
    const LockGuard hold(queue->lock);
    return queue->count;
}

// The next packet that is sent to the dongle; null when time ran out. Waits by the real clock, even
// under a FakeTick.
inline PacketPtr NextSent(DeviceQueues* queues) {
    PacketPtr packet;
    Eventually([&] { return (packet = TakePacket(&queues->tx, 0)) != nullptr; });
    return packet;
}

}  // namespace tarvik::test
