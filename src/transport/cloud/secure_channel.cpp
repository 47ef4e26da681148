// The session: sealing and opening packets.
#include "transport/cloud/secure_channel.h"

#include "platform/immortal.h"
#include "support/cop_trace.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/secure_channel_state.h"
#include "transport/cloud/secure_channel_wire.h"

namespace tarvik {
namespace {

constexpr std::string_view kFromDevice = "v1|role=device|server";
constexpr std::string_view kFromRelay = "v1|role=server|device";
static_assert(kFromDevice.size() == 21 && kFromRelay.size() == 21);

Immortal<CloudSecSession> session_storage;

// Holds sealing_lock.
PacketPtr Sealed(CloudSecSession* session, const Packet& packet) {
    const auto size = static_cast<std::uint32_t>(packet.length + sizeof(CrypWire));
    PacketPtr sealed = MakePacket(kTypeCryp, size);
    if (sealed == nullptr) return nullptr;
    const AeadNonce nonce = NonceFor(session->nonceSalt, session->txCounter);
    std::uint8_t* bytes = sealed->Bytes();
    if (!session->tx_cipher.Encrypt(nonce, kFromDevice, packet.View(), bytes + sizeof(CrypWire),
                                    bytes + offsetof(CrypWire, tag))) {
        return nullptr;
    }
    ++session->txCounter;
    return sealed;
}

// The packet inside; null if it is not authentic or not one whole packet. Holds opening_lock.
PacketPtr Opened(CloudSecSession* session, const Packet& packet) {
    const auto size = static_cast<std::uint32_t>(packet.length - sizeof(CrypWire));
    PacketPtr inner(static_cast<Packet*>(AllocateMem(size)));
    if (inner == nullptr) return nullptr;
    const std::uint8_t* bytes = packet.Bytes();
    const AeadNonce nonce = NonceFor(session->nonceSalt, session->rxCounter);
    if (!session->rx_cipher.Decrypt(nonce, kFromRelay, {bytes + sizeof(CrypWire), size},
                                    bytes + offsetof(CrypWire, tag), inner->Bytes())) {
        return nullptr;
    }
    if (size < MIN_PKT_SIZE || inner->length != size) return nullptr;
    ++session->rxCounter;
    return inner;
}

}  // namespace

CloudSecSession& cloud_session = *session_storage;

bool CloudSecEstablished() { return cloud_session.established.load(std::memory_order_acquire); }

void CloudSecClearSession() { ClearSession(&cloud_session); }

PacketPtr CloudSecSeal(PacketPtr packet) {
    if (packet->type == kTypeNhs1) return packet;
    TraceCloudPkt("tx", "plain", packet->Bytes(), packet->length);
    {
        const LockGuard hold(cloud_session.sealing_lock);
        if (!CloudSecEstablished()) return packet;
        if (PacketPtr sealed = Sealed(&cloud_session, *packet)) return sealed;
    }
    // Deliberate: a packet that cannot be sealed is sent unsealed, and the counter does not change.
    CloudLog("[Cloud] Failed to seal packet\n");
    return packet;
}

bool CloudSecOpen(CloudSecSession* session, PacketPtr& packet) {
    if (packet->length < sizeof(CrypWire)) {
        CloudLog("[CloudSec] [E] Packet too short for AEAD\n");
        return false;
    }
    const LockGuard hold(session->opening_lock);
    if (!session->established) return false;
    PacketPtr inner = Opened(session, *packet);
    if (inner == nullptr) return false;
    packet = std::move(inner);
    return true;
}

}  // namespace tarvik
