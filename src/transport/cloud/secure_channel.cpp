// The session: sealing what leaves, opening what arrives.
#include "transport/cloud/secure_channel.h"

#include <cstring>

#include "platform/immortal.h"
#include "platform/lock.h"
#include "support/cop_trace.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/secure_channel_state.h"

namespace tarvik {

static constexpr std::string_view kFromDevice = "v1|role=device|server";
static constexpr std::string_view kFromRelay = "v1|role=server|device";
static_assert(kFromDevice.size() == 21 && kFromRelay.size() == 21);

// CRYP: header, tag, one whole packet enciphered.
static constexpr std::uint32_t kTagOffset = 8;
static constexpr std::uint32_t kCipherOffset = kTagOffset + kAeadTagSize;
static_assert(kCipherOffset == 24);

// Sealing and opening go on at the same time. Taken in this order where both are.
static Immortal<OsLock> sealing_lock;
static Immortal<OsLock> opening_lock;

static Immortal<CloudSecSession> session_storage;
CloudSecSession& cloud_session = *session_storage;

bool CloudSecEstablished() { return cloud_session.established.load(std::memory_order_acquire); }

void EndSession(CloudSecSession* session) {
    const LockGuard hold_sealing(*sealing_lock);
    const LockGuard hold_opening(*opening_lock);
    session->established = false;
}

void CloudSecClearSession() {
    const LockGuard hold_sealing(*sealing_lock);
    const LockGuard hold_opening(*opening_lock);
    CloudSecSession& session = cloud_session;
    session.established = false;
    session.tx_cipher.Wipe();
    session.rx_cipher.Wipe();
    session.txKey.Wipe();
    session.rxKey.Wipe();
    session.nonceSalt.Wipe();
    session.txCounter = 0;
    session.rxCounter = 0;
}

AeadNonce NonceFor(const Secret<32>& salt, std::uint64_t counter) {
    constexpr std::size_t kCounterOffset = 4;
    AeadNonce nonce;
    std::memcpy(nonce.data(), salt.data(), nonce.size());
    for (std::size_t i = 0; i < sizeof counter; ++i) {
        const auto digit = static_cast<std::uint8_t>(counter >> 8 * i);
        nonce[kCounterOffset + i] = static_cast<std::uint8_t>(nonce[kCounterOffset + i] ^ digit);
    }
    return nonce;
}

// The sealing lock is held.
static PacketPtr Sealed(CloudSecSession* session, const Packet& packet) {
    PacketPtr sealed = MakePacket(kTypeCryp, packet.length + kCipherOffset);
    if (sealed == nullptr) return nullptr;
    const AeadNonce nonce = NonceFor(session->nonceSalt, session->txCounter);
    std::uint8_t* bytes = sealed->Bytes();
    if (!session->tx_cipher.Encrypt(nonce, kFromDevice, packet.View(), bytes + kCipherOffset,
                                    bytes + kTagOffset)) {
        return nullptr;
    }
    ++session->txCounter;
    return sealed;
}

PacketPtr CloudSecSeal(PacketPtr packet) {
    if (packet->type == kTypeNhs1) return packet;
    TraceCloudPkt("tx", "plain", packet->Bytes(), packet->length);
    {
        const LockGuard hold(*sealing_lock);
        if (!CloudSecEstablished()) return packet;
        if (PacketPtr sealed = Sealed(&cloud_session, *packet)) return sealed;
    }
    // Deliberate: a packet that cannot be sealed goes out as it is, and the counter stays.
    CloudLog("[Cloud] Failed to seal packet\n");
    return packet;
}

// The packet inside; null when it is not genuine, or no whole packet. The opening lock is held.
static PacketPtr Opened(CloudSecSession* session, const Packet& packet) {
    const std::uint32_t size = packet.length - kCipherOffset;
    PacketPtr inner(static_cast<Packet*>(AllocateMem(size)));
    if (inner == nullptr) return nullptr;
    const std::uint8_t* bytes = packet.Bytes();
    const AeadNonce nonce = NonceFor(session->nonceSalt, session->rxCounter);
    if (!session->rx_cipher.Decrypt(nonce, kFromRelay, {bytes + kCipherOffset, size},
                                    bytes + kTagOffset, inner->Bytes())) {
        return nullptr;
    }
    if (size < MIN_PKT_SIZE || inner->length != size) return nullptr;
    ++session->rxCounter;
    return inner;
}

bool CloudSecOpen(CloudSecSession* session, PacketPtr& packet) {
    if (packet->length < kCipherOffset) {
        CloudLog("[CloudSec] [E] Packet too short for AEAD\n");
        return false;
    }
    const LockGuard hold(*opening_lock);
    if (!session->established) return false;
    PacketPtr inner = Opened(session, *packet);
    if (inner == nullptr) return false;
    packet = std::move(inner);
    return true;
}

}  // namespace tarvik
