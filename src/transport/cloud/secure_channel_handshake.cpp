// NHS1 and NHS2: from two key pairs on each side to the keys of a session.
//
// The first secret authenticates the relay, the second the device: only the holders of both static
// keys derive the same session keys. A welcome that opens under one of them is the relay's proof.
#include <mbedtls/ecdh.h>

#include <cstring>

#include "transport/cloud/cloud_log.h"
#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_answer.h"
#include "transport/cloud/secure_channel_random.h"
#include "transport/cloud/secure_channel_state.h"
#include "transport/cloud/secure_channel_wire.h"

namespace tarvik {
namespace {

// What one handshake computes; wiped at its end. The session takes over the keys as the last step.
struct HandshakeWork {
    EcGroup group;
    BigNumber ephemeral_scalar;
    EcPoint ephemeral_point;
    EncodedPoint ephemeral_key{};
    Secret<kScalarSize> shared_secret_1;
    Secret<kScalarSize> shared_secret_2;
    SessionKeys keys;
};

bool Fail(const char* line) {
    CloudLog("%s", line);
    return false;
}

// `number` is for the log.
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

// The device's static key is encrypted under a key that only the relay's static key can derive.
PacketPtr MakeNhs1(const HandshakeWork& work) {
    // Deliberate: the extracted key is used as it is, without the expanding half of HKDF.
    Secret<kAeadKeySize> key;
    AeadKey cipher;
    const auto& secret = work.shared_secret_1;
    if (!HkdfExtract({secret.data(), secret.size()}, &key) || !cipher.Set(key)) return nullptr;

    Nhs1Wire fields{};
    fields.type = kTypeNhs1;
    std::memcpy(fields.ephemeral_key, work.ephemeral_key.data(), kPointSize);
    const AeadNonce zero{};  // the key is used once only
    const auto& plain = cloud_identity.devicePublicKey;
    if (!cipher.Encrypt(zero, "ad:dev_pk", {plain.data(), plain.size()}, fields.static_key,
                        fields.tag)) {
        return nullptr;
    }
    return BuildPacket(fields);
}

bool SendNhs1(DeviceQueues* queues, const HandshakeWork& work) {
    PacketPtr packet = MakeNhs1(work);
    if (packet == nullptr) return Fail("[CloudSec] [E] Failed to send NHS1\n");
    EnqueueTransmitPacket(queues, packet);  // if the queue is inactive, no answer will come
    return true;
}

// --- the relay's message ---

bool AgreeWithEphemeralKey(const Nhs2Wire& nhs2, HandshakeWork* work) {
    EcPoint relay;
    EncodedPoint encoded;
    std::memcpy(encoded.data(), nhs2.ephemeral_key, kPointSize);
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

bool DeriveSessionKeys(HandshakeWork* work) {
    Secret<2 * kScalarSize> ikm;
    std::memcpy(ikm.data(), work->shared_secret_2.data(), kScalarSize);
    std::memcpy(ikm.data() + kScalarSize, work->shared_secret_1.data(), kScalarSize);
    Secret<32> prk;
    SessionKeys& keys = work->keys;
    const bool derived =
        HkdfExtract({ikm.data(), ikm.size()}, &prk) && HkdfExpand(prk, "hop-tx", &keys.txKey) &&
        HkdfExpand(prk, "hop-rx", &keys.rxKey) &&
        HkdfExpand(prk, "hop-nonce-salt", &keys.nonceSalt) && keys.tx_cipher.Set(keys.txKey);
    return derived || Fail("[CloudSec] [E] Failed to derive session keys\n");
}

// The welcome's text has no meaning. That it opens proves that the relay holds its static key.
bool OpenWelcome(ByteView welcome, const Nhs2Wire& nhs2, SessionKeys* keys, std::uint8_t* text) {
    if (welcome.size < kShortestWelcome) return Fail("[CloudSec] [E] enc_welcome too short\n");
    const bool opened = keys->rx_cipher.Set(keys->rxKey) &&
                        keys->rx_cipher.Decrypt(NonceFor(keys->nonceSalt, 0), "ad:welcome", welcome,
                                                nhs2.tag, text);
    return opened || Fail("[CloudSec] [E] Failed to decrypt welcome message\n");
}

bool AcceptNhs2(Packet* packet, HandshakeWork* work) {
    const auto nhs2 = packet->Fields<Nhs2Wire>();
    // A message without room for a welcome may be too short for a key, too.
    if (!nhs2) return Fail("[CloudSec] [E] enc_welcome too short\n");
    return AgreeWithEphemeralKey(*nhs2, work) && DeriveSessionKeys(work) &&
           OpenWelcome(packet->DataAfter<Nhs2Wire>(), *nhs2, &work->keys,
                       packet->Bytes() + sizeof(Nhs2Wire));
}

bool ReceiveNhs2(DeviceQueues* queues, const std::atomic<bool>* abort, HandshakeWork* work) {
    static constexpr ExpectedAnswer kNhs2 = {
        .type = kTypeNhs2,
        .shortest = MIN_PKT_SIZE,
        .missing = "[CloudSec] [E] Timeout waiting for HS2\n",
        .unexpected = "Unexpected packet type",
    };
    const PacketPtr packet = WaitForAnswer(queues, kNhs2, abort);
    const bool accepted = packet != nullptr && AcceptNhs2(packet.get(), work);
    return accepted || Fail("[CloudSec] [E] Failed to validate NHS2\n");
}

}  // namespace

bool CloudSecHandshake(DeviceQueues* queues, const std::atomic<bool>* abort) {
    if (!cloud_identity.identityLoaded) return Fail("[CloudSec] [E] Identity not loaded\n");
    ClearSession(&cloud_session);
    CloudLog("[CloudSec] [I] Starting handshake...\n");

    HandshakeWork work;
    if (!MakeEphemeralKey(&work) || !AgreeWithStaticKey(&work)) {
        // Deliberate: after the line of the step that failed, and a second time if it was this one.
        return Fail("[CloudSec] [E] Failed to compute shared secret 1\n");
    }
    if (!SendNhs1(queues, work) || !ReceiveNhs2(queues, abort, &work)) return false;
    InstallSession(&cloud_session, &work.keys);
    CloudLog("[CloudSec] [I] Handshake successful\n");
    return true;
}

}  // namespace tarvik
