#include "transport/cloud/cloud_traffic.h"

#include "link/fragmentation.h"
#include "link/packet_counters.h"
#include "support/cop_trace.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/cloud_packets.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/secure_channel.h"
#include "transport/identification.h"
#include "transport/login_report.h"

namespace tarvik {
namespace {

// A dongle's login, with the same layout as LOGN.
constexpr std::uint32_t kTypeLogc = TypeCode("LOGC");

// False: drop the packet.
bool OpenSealedPacket(PacketPtr& packet) {
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

bool HasRoom() { return HasRoomForAnswers(&cloud->queues.tx); }

bool IsLastAddressed(const DeviceAddress& address) {
    const LockGuard hold(cloud->address_lock);
    return address == cloud->last_addressed;
}

void AcceptLogin(PacketPtr packet) {
    Log(kLogTrace, "Received LOGIN");
    const DeviceAddress address = AddressFromMac(LoginFromPacket(*packet).Mac());
    if (IsLastAddressed(address) && HasRoom()) {
        Log(kLogTrace, "Was our previous one. Reconnecting.");
        SendAddress(address);
    }
    const PacketPtr report = CopyPacket(*packet);  // a scan may take and release the original
    EnqueueReceivedPacket(&cloud->queues, packet);
    if (report != nullptr) DpduTransportReportLoginPacket(nullptr, report.get(), &cloud->queues);
}

void PassOn(PacketPtr packet) {
    switch (packet->type) {
        case kTypeIden:
            if (HasRoom()) CloudSendLogin();
            return;
        case kTypeLogn:
        case kTypeLogc:
            AcceptLogin(std::move(packet));
            return;
        case kTypePing:
            AnswerPing(&cloud->queues, packet);
            return;
        default:
            EnqueueReceivedPacket(&cloud->queues, packet);
    }
}

}  // namespace

void DispatchCloudPacket(PacketPtr packet) {
    TraceCloudPkt("rx", "wire", packet->Bytes(), packet->length);
    CountReceivedPacket(packet->length);
    // Deliberate: an unsealed packet is accepted, even while the channel is established.
    if (packet->type == kTypeCryp && !OpenSealedPacket(packet)) return;
    PacketPtr complete;
    if (FragReceivePacket(&cloud->queues, packet, &complete)) PassOn(std::move(complete));
}

namespace {

// Sealed, a longer packet would exceed the relay's receive limit and end every connection.
bool IsSendable(const Packet& packet) {
    if (packet.length <= kCloudMtu) return true;
    Log(kLogError, "[Cloud] Dropped a packet of %u bytes, at most %u can be sealed", packet.length,
        kCloudMtu);
    return false;
}

}  // namespace

PacketPtr NextCloudPacket() {
    PacketPtr packet = TakePacket(&cloud->queues.tx, GetCloudLimits().transmit_wait_ms);
    if (packet == nullptr || !IsSendable(*packet)) return nullptr;
    packet = CloudSecSeal(std::move(packet));
    TraceCloudPkt("tx", "wire", packet->Bytes(), packet->length);
    CountSentPacket(packet->length);
    return packet;
}

void PutBackCloudPacket(PacketPtr packet) {
    if (IsSendable(*packet)) AppendPacket(&cloud->queues.tx, packet, kNoTag);
}

}  // namespace tarvik
