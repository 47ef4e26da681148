#pragma once

// A channel with the keys of the first case of the vectors.

#include "fuzz/link/fuzz_support.h"
#include "support/config.h"
#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_state.h"
#include "unit/cloud/crypto_hooks.h"
#include "vectors/secure_vectors.h"

namespace tarvik::fuzz {

using test::Bytes;

inline const test::SecureVector& Vector() { return test::SecureVectors().front(); }

inline void LoadKeys() {
    const std::string device = test::HexOf(Vector().device_private_key);
    const std::string server = test::HexOf(Vector().server_public_key);
    std::memcpy(config.devicePrivateKey, device.c_str(), device.size() + 1);
    std::memcpy(config.serverPublicKey, server.c_str(), server.size() + 1);
    Require(CloudSecLoadIdentity());
}

// Runs the handshake with this packet as the relay's answer.
inline bool ShakeHands(PacketPtr nhs2) {
    static Dongle relay;
    const test::FixedEphemeral ephemeral(Vector().device_ephemeral_private_key,
                                         Vector().device_ephemeral_public_key);
    Require(AppendPacket(&relay.rx, nhs2, kNoTag));
    const bool done = CloudSecHandshake(&relay);
    Require(TakePacket(&relay.rx, 0) == nullptr);
    const PacketPtr nhs1 = TakePacket(&relay.tx, 0);
    Require(nhs1 != nullptr && nhs1->length == Vector().nhs1.size());
    Require(std::memcmp(nhs1->Bytes(), Vector().nhs1.data(), nhs1->length) == 0);
    return done;
}

// The packet with these bytes, header included.
inline PacketPtr PacketOf(const Bytes& bytes) {
    return PacketFrom(LoadU32(bytes.data()), bytes.data() + MIN_PKT_SIZE,
                      bytes.size() - MIN_PKT_SIZE);
}

}  // namespace tarvik::fuzz
