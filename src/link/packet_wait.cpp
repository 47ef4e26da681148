// Waiting for a packet from a dongle.
#include <algorithm>

#include "link/packet_queue.h"
#include "platform/tick.h"
#include "support/log.h"

namespace tarvik {
namespace {

std::int32_t Limited(std::uint64_t ms) {
    return static_cast<std::int32_t>(std::min<std::uint64_t>(ms, INT32_MAX));
}

std::int32_t TimeLeft(std::uint64_t deadline_ms) {
    const std::uint64_t now = TickMs();
    return now >= deadline_ms ? 0 : Limited(deadline_ms - now);
}

bool IsWanted(const Packet& packet, std::uint32_t type, std::uint32_t id) {
    if (packet.type == type) return true;
    return id != kNoTag && packet.type == kTypeBusy &&
           MatchTypeAndId(packet, {.type = kTypeBusy, .id = id});
}

}  // namespace

PacketPtr WaitForPacket(DeviceQueues* queues, std::uint32_t type, std::uint32_t timeout_ms,
                        std::uint32_t id, const std::atomic<bool>* abort,
                        const std::atomic<bool>* running) {
    if (queues == nullptr || !queues->available || timeout_ms == 0) return nullptr;
    const std::uint64_t deadline_ms = TickMs() + timeout_ms;
    const WaitFlags flags = {&queues->available, abort, running};

    std::int32_t left_ms = Limited(timeout_ms);
    do {
        PacketPtr packet(
            FindPacket(&queues->rx, {.filter = id != kNoTag ? MatchTypeAndId : MatchType,
                                     .argument = {.type = type, .id = id},
                                     .remove = true,
                                     .timeout_ms = left_ms,
                                     .flags = &flags}));
        if (packet == nullptr) return nullptr;
        Log(kLogTrace, "[%s] Received: %s", __func__, ReadableType(packet->type).text);
        if (IsWanted(*packet, type, id)) return packet;

        // Cannot happen with these filters. If it ever does, the packet is not lost.
        Log(kLogTrace, "[%s] WARNING: Filter returned unexpected packet type", __func__);
        AppendPacket(&queues->rx, packet, kNoTag);
        id = kNoTag;
        left_ms = TimeLeft(deadline_ms);
    } while (left_ms > 0);
    return nullptr;
}

}  // namespace tarvik
