// NHS1 and NHS2: from two key pairs on each side to the keys of a session.
//
// The device proves who it is by the second secret, the relay by the first: only the holders of
// both static keys come to the same session keys, and the welcome that opens under one of them is
// the relay's proof.
#include <mbedtls/ecdh.h>

#include <cstring>

#include "transport/cloud/cloud_log.h"
#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_state.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kAnswerTimeoutMs = 1000;

// As it stands on the wire.
struct Nhs1Wire {
    std::uint8_t header[8];
    std::uint8_t tag[kAeadTagSize];  // over the enciphered static key
    std::uint8_t ephemeral_key[kPointSize];
    std::uint8_t static_key[kPointSize];  // enciphered
    std::uint8_t zero[2];
};
static_assert(offsetof(Nhs1Wire, tag) == 8);
static_assert(offsetof(Nhs1Wire, ephemeral_key) == 24);
static_assert(offsetof(Nhs1Wire, static_key) == 89);
static_assert(sizeof(Nhs1Wire) == 156);

struct Nhs2Wire {
    std::uint8_t header[8];
    std::uint8_t tag[kAeadTagSize];  // of the welcome
    std::uint8_t ephemeral_key[kPointSize];
    std::uint8_t unread[7];
};  // the enciphered welcome follows
static_assert(offsetof(Nhs2Wire, ephemeral_key) == 24);
static_assert(sizeof(Nhs2Wire) == 96);
constexpr std::uint32_t kShortestWelcome = 7;

// What one handshake needs; wiped with it.
struct HandshakeWork {
    EcGroup group;
    BigNumber ephemeral_scalar;
    EcPoint ephemeral_point;
    EncodedPoint ephemeral_key{};
    Secret<kScalarSize> shared_secret_1;
    Secret<kScalarSize> shared_secret_2;
};

bool Fail(const char* line) {
    CloudLog("%s", line);
    return false;
}

// `number` tells the two secrets apart in the log.
bool ComputeSharedSecret(HandshakeWork* work, int number, const BigNumber& own_scalar,
                         const EcPoint& their_point, Secret<kScalarSize>* secret) {
    BigNumber x;
    if (mbedtls_ecdh_compute_shared(work->group.Get(), x.Get(), their_point.Get(), own_scalar.Get(),
                                    mbedtls_ctr_drbg_random, CloudSecRng()) != 0) {
        CloudLog("[CloudSec] [E] Failed to compute shared secret %d\n", number);
        return false;
    }
    if (mbedtls_mpi_write_binary(x.Get(), secret->data(), secret->size()) != 0) {
        CloudLog("[CloudSec] [E] Failed to write shared secret %d\n", number);
        return false;
    }
    return true;
}

// --- the device's message ---

bool MakeEphemeralKey(HandshakeWork* work) {
    if (mbedtls_ecp_group_load(work->group.Get(), MBEDTLS_ECP_DP_SECP256R1) != 0) {
        return Fail("[CloudSec] [E] Failed to load ECC group\n");
    }
    if (mbedtls_ecp_gen_keypair(work->group.Get(), work->ephemeral_scalar.Get(),
                                work->ephemeral_point.Get(), mbedtls_ctr_drbg_random,
                                CloudSecRng()) != 0) {
        return Fail("[CloudSec] [E] Failed to generate ephemeral keypair\n");
    }
    std::size_t length = 0;
    if (mbedtls_ecp_point_write_binary(work->group.Get(), work->ephemeral_point.Get(),
                                       MBEDTLS_ECP_PF_UNCOMPRESSED, &length,
                                       work->ephemeral_key.data(), kPointSize) != 0 ||
        length != kPointSize) {
        return Fail("[CloudSec] [E] Failed to write ephemeral public key\n");
    }
    return true;
}

bool AgreeWithStaticKey(HandshakeWork* work) {
    EcPoint server;
    if (!ReadPublicKey(&work->group, cloud_identity.serverPublicKey, &server)) {
        return Fail("[CloudSec] [E] Failed to read server public key\n");
    }
    return ComputeSharedSecret(work, 1, work->ephemeral_scalar, server, &work->shared_secret_1);
}

// The device's static key travels under a key that only the relay's static key can lead to.
PacketPtr MakeNhs1(const HandshakeWork& work) {
    // Deliberate: the extracted key is used as it is, without the expanding half of HKDF.
    Secret<kAeadKeySize> key;
    AeadKey cipher;
    const auto& secret = work.shared_secret_1;
    if (!HkdfExtract({secret.data(), secret.size()}, &key) || !cipher.Set(key)) return nullptr;

    PacketPtr packet = MakePacket(kTypeNhs1, sizeof(Nhs1Wire));
    if (packet == nullptr) return nullptr;
    std::uint8_t* bytes = packet->Bytes();
    std::memcpy(bytes + offsetof(Nhs1Wire, ephemeral_key), work.ephemeral_key.data(), kPointSize);
    const AeadNonce zero{};  // the key is used this once
    const auto& plain = cloud_identity.devicePublicKey;
    if (!cipher.Encrypt(zero, "ad:dev_pk", {plain.data(), plain.size()},
                        bytes + offsetof(Nhs1Wire, static_key), bytes + offsetof(Nhs1Wire, tag))) {
        return nullptr;
    }
    return packet;
}

bool SendNhs1(DeviceQueues* queues, const HandshakeWork& work) {
    PacketPtr packet = MakeNhs1(work);
    if (packet == nullptr) return Fail("[CloudSec] [E] Failed to send NHS1\n");
    EnqueueTransmitPacket(queues, packet);  // a queue that is not active: the answer fails to come
    return true;
}

// --- the relay's message ---

PacketPtr WaitForNhs2(DeviceQueues* queues, const std::atomic<bool>* abort) {
    PacketPtr packet = WaitForPacket(queues, kTypeNhs2, kAnswerTimeoutMs, kNoTag, abort);
    if (packet == nullptr) {
        CloudLog("[CloudSec] [E] Timeout waiting for HS2\n");
        return nullptr;
    }
    if (packet->type != kTypeNhs2) {
        CloudLog("[CloudSec] [E] Unexpected packet type: %c%c%c%c\n", TypeLetter(packet->type, 0),
                 TypeLetter(packet->type, 1), TypeLetter(packet->type, 2),
                 TypeLetter(packet->type, 3));
        return nullptr;
    }
    return packet;
}

bool AgreeWithEphemeralKey(const Packet& nhs2, HandshakeWork* work) {
    EcPoint relay;
    EncodedPoint encoded;
    std::memcpy(encoded.data(), nhs2.Bytes() + offsetof(Nhs2Wire, ephemeral_key), kPointSize);
    if (!ReadPublicKey(&work->group, encoded, &relay)) {
        return Fail("[CloudSec] [E] Failed to read server ephemeral public key\n");
    }
    BigNumber device_scalar;
    const auto& key = cloud_identity.devicePrivateKey;
    if (mbedtls_mpi_read_binary(device_scalar.Get(), key.data(), key.size()) != 0) {
        return Fail("[CloudSec] [E] Failed to read device private key\n");
    }
    return ComputeSharedSecret(work, 2, device_scalar, relay, &work->shared_secret_2);
}

bool DeriveSessionKeys(const HandshakeWork& work, CloudSecSession* session) {
    Secret<2 * kScalarSize> ikm;
    std::memcpy(ikm.data(), work.shared_secret_2.data(), kScalarSize);
    std::memcpy(ikm.data() + kScalarSize, work.shared_secret_1.data(), kScalarSize);
    Secret<32> prk;
    const bool derived = HkdfExtract({ikm.data(), ikm.size()}, &prk) &&
                         HkdfExpand(prk, "hop-tx", &session->txKey) &&
                         HkdfExpand(prk, "hop-rx", &session->rxKey) &&
                         HkdfExpand(prk, "hop-nonce-salt", &session->nonceSalt) &&
                         session->tx_cipher.Set(session->txKey);
    return derived || Fail("[CloudSec] [E] Failed to derive session keys\n");
}

// The welcome's text means nothing; that it opens means that the relay holds its static key.
bool OpenWelcome(Packet* nhs2, CloudSecSession* session) {
    const std::uint32_t size = nhs2->length - static_cast<std::uint32_t>(sizeof(Nhs2Wire));
    if (size < kShortestWelcome) return Fail("[CloudSec] [E] enc_welcome too short\n");
    std::uint8_t* welcome = nhs2->Bytes() + sizeof(Nhs2Wire);
    const bool opened =
        session->rx_cipher.Set(session->rxKey) &&
        session->rx_cipher.Decrypt(NonceFor(session->nonceSalt, 0), "ad:welcome", {welcome, size},
                                   nhs2->Bytes() + offsetof(Nhs2Wire, tag), welcome);
    return opened || Fail("[CloudSec] [E] Failed to decrypt welcome message\n");
}

bool AcceptNhs2(Packet* nhs2, HandshakeWork* work, CloudSecSession* session) {
    // A message without room for a welcome need not hold a key either.
    if (nhs2->length < sizeof(Nhs2Wire)) return Fail("[CloudSec] [E] enc_welcome too short\n");
    return AgreeWithEphemeralKey(*nhs2, work) && DeriveSessionKeys(*work, session) &&
           OpenWelcome(nhs2, session);
}

bool ReceiveNhs2(DeviceQueues* queues, const std::atomic<bool>* abort, HandshakeWork* work) {
    const PacketPtr packet = WaitForNhs2(queues, abort);
    if (packet != nullptr && AcceptNhs2(packet.get(), work, &cloud_session)) return true;
    CloudSecClearSession();  // keys may have got that far
    return Fail("[CloudSec] [E] Failed to validate NHS2\n");
}

}  // namespace

bool CloudSecHandshake(DeviceQueues* queues, const std::atomic<bool>* abort) {
    if (!cloud_identity.identityLoaded) return Fail("[CloudSec] [E] Identity not loaded\n");
    EndSession(&cloud_session);
    CloudLog("[CloudSec] [I] Starting handshake...\n");

    HandshakeWork work;
    if (!MakeEphemeralKey(&work) || !AgreeWithStaticKey(&work)) {
        // Deliberate: after the line of the step that failed, and a second time if it was this one.
        return Fail("[CloudSec] [E] Failed to compute shared secret 1\n");
    }
    if (!SendNhs1(queues, work) || !ReceiveNhs2(queues, abort, &work)) return false;

    // Deliberate: the welcome does not count, so that the relay's first packet has its nonce.
    cloud_session.txCounter = 0;
    cloud_session.rxCounter = 0;
    cloud_session.established.store(true, std::memory_order_release);
    CloudLog("[CloudSec] [I] Handshake successful\n");
    return true;
}

}  // namespace tarvik
