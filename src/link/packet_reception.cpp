// Logs, tags and queues the packets of a dongle.

#include <cstring>

#include "link/comm_response.h"
#include "link/packet_queue.h"
#include "link/raw_frame.h"
#include "link/telemetry.h"
#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik {
namespace {

bool Missing(const char* function, DeviceQueues* queues, const PacketPtr& packet) {
    if (queues != nullptr && packet != nullptr) return false;
    Log(kLogTrace, "[%s] Invalid parameters: queues=%p, packet=%p", function,
        static_cast<void*>(queues), static_cast<void*>(packet.get()));
    return true;
}

}  // namespace

bool EnqueueTransmitPacket(DeviceQueues* queues, PacketPtr& packet) {
    if (Missing(__func__, queues, packet)) return false;
    return AppendPacket(&queues->tx, packet, kNoTag);
}

namespace {

// The functions below report a packet and return its tag. They log under the name of the function
// that they are part of.
constexpr char kLogName[] = "EnqueueReceivedPacket";

std::uint32_t ReportUntagged() {
    Log(kLogMemory, "[%s]   Enqueuing without tag", kLogName);
    return kNoTag;
}

std::uint32_t ReportBusy(const Packet& packet) {
    const auto busy = packet.Fields<BusyWire>();
    if (!busy) {
        Log(kLogTrace, "[%s] BUSY packet too short: %u bytes (need %u)", kLogName, packet.length,
            static_cast<unsigned>(sizeof(BusyWire)));
        return kNoTag;
    }
    const std::uint32_t id = busy->req_id;
    const ByteView text = packet.DataAfter<BusyWire>();
    const auto* reason = reinterpret_cast<const char*>(text.data);
    const std::size_t length = strnlen(reason, text.size);
    TraceBusyReceived(id, reason, static_cast<std::uint32_t>(length));
    if (length > 0) {
        Log(kLogTrace, "[%s] BUSY (ID %u): %s", kLogName, id,
            PrintableText(reason, length).c_str());
    } else {
        Log(kLogTrace, "[%s] BUSY (ID %u)", kLogName, id);
    }
    return id;
}

std::uint32_t ReportResponse(const Packet& packet) {
    const auto response = CommResponseView::Of(packet);
    if (!response) return ReportUntagged();
    const ByteView data = response->Data();
    TraceCommResReceived(response->RequestId(), response->WaitTime(), data.data,
                         static_cast<std::uint32_t>(data.size));
    Log(kLogMemory, "[%s]   COMM_RES tagged with ID: %u", kLogName, response->RequestId());
    return response->RequestId();
}

std::uint32_t ReportRawFrame(const Packet& packet) {
    const auto frame = RawFrameView::Of(packet);
    if (!frame) return ReportUntagged();
    Log(kLogMemory, "[%s]   RAWCAN tagged with CAN ID: 0x%X", kLogName, frame->CanId());
    return frame->CanId();
}

std::uint32_t ReportAndTag(const Packet& packet) {
    switch (packet.type) {
        case kTypeBusy:
            return ReportBusy(packet);
        case kTypeCres:
            return ReportResponse(packet);
        case kTypeRawc:
            return ReportRawFrame(packet);
        default:
            return ReportUntagged();
    }
}

}  // namespace

bool EnqueueReceivedPacket(DeviceQueues* queues, PacketPtr& packet) {
    if (Missing(__func__, queues, packet)) return false;
    if (packet->type == kTypeTele) {
        HandleTelemetryPacket(*packet);
        packet.reset();
        return true;
    }
    return AppendPacket(&queues->rx, packet, ReportAndTag(*packet));
}

}  // namespace tarvik
