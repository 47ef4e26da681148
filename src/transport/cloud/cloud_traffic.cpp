#include "transport/cloud/cloud_traffic.h"

#include "link/fragmentation.h"
#include "link/packet_counters.h"
#include "platform/thread.h"
#include "support/cop_trace.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/cloud_packets.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/secure_channel.h"
#include "transport/login_report.h"

namespace tarvik {

// A login of a dongle, as LOGN.
static constexpr std::uint32_t kTypeLogc = TypeCode("LOGC");

static constexpr std::int32_t kQueueWaitMs = 50;

// ---------------------------------------------------------------- arriving

void BeginReceiving() { cloud->receiver_id = OsCurrentThreadId(); }

// The next connection may be up already, with a receive thread of its own.
bool GoesOnReceiving() {
    return cloud->receiver_id == OsCurrentThreadId() &&
           cloud->connState != ConnState::kDisconnecting;
}

void EndReceiving() {
    std::uint32_t own = OsCurrentThreadId();
    cloud->receiver_id.compare_exchange_strong(own, 0);
}

// False: the packet is to be dropped.
static bool OpenSealedPacket(PacketPtr& packet) {
    if (!CloudSecEstablished()) {
        CloudLog("[Cloud] Received CRYPT packet but Noise channel not established\n");
        return false;
    }
    if (!CloudSecOpen(&cloud_session, packet)) {
        CloudLog("[Cloud] Failed to open AEAD packet\n");
        return false;
    }
    TraceCloudPkt("rx", "plain", packet->Bytes(), packet->length);
    return true;
}

static bool IsLastAddressed(const DeviceAddress& address) {
    const LockGuard hold(cloud->address_lock);
    return address == cloud->last_addressed;
}

static void AcceptLogin(PacketPtr packet) {
    Log(kLogTrace, "Received LOGIN");
    const DeviceAddress address = AddressFromMac(LoginFromPacket(*packet).Mac());
    if (IsLastAddressed(address)) {
        Log(kLogTrace, "Was our previous one. Reconnecting.");
        SendAddress(address);
    }
    const PacketPtr report = CopyPacket(*packet);  // a scan may take and release the other one
    EnqueueReceivedPacket(&cloud->queues, packet);
    if (report != nullptr) DpduTransportReportLoginPacket(nullptr, report.get(), &cloud->queues);
}

static void PassOn(PacketPtr packet) {
    switch (packet->type) {
        case kTypeIden:
            CloudSendLogin();
            return;
        case kTypeLogn:
        case kTypeLogc:
            AcceptLogin(std::move(packet));
            return;
        case kTypePing:
            packet->type = kTypeRepl;
            EnqueueTransmitPacket(&cloud->queues, packet);
            return;
        default:
            EnqueueReceivedPacket(&cloud->queues, packet);
    }
}

void DispatchCloudPacket(PacketPtr packet) {
    TraceCloudPkt("rx", "wire", packet->Bytes(), packet->length);
    CountReceivedPacket(packet->length);
    // Deliberate: a packet that is not sealed is taken as it is, with the channel established too.
    if (packet->type == kTypeCryp && !OpenSealedPacket(packet)) return;
    PacketPtr complete;
    if (FragReceivePacket(&cloud->queues, packet, &complete)) PassOn(std::move(complete));
}

// ---------------------------------------------------------------- leaving

PacketPtr NextCloudPacket() {
    PacketPtr packet = TakePacket(&cloud->queues.tx, kQueueWaitMs);
    if (packet == nullptr) return nullptr;
    packet = CloudSecSeal(std::move(packet));
    TraceCloudPkt("tx", "wire", packet->Bytes(), packet->length);
    CountSentPacket(packet->length);
    return packet;
}

// Deliberate: as it was to be sent, sealed; the next session seals it once more.
void PutBackCloudPacket(PacketPtr packet) { AppendPacket(&cloud->queues.tx, packet, kNoTag); }

}  // namespace tarvik
