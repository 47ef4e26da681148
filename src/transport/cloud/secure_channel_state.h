#pragma once

#include <mbedtls/ctr_drbg.h>

#include <atomic>
#include <cstdint>

#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_crypto.h"

// What the channel remembers, for its own files and their tests.
namespace tarvik {

// Written and read by the connection thread only. Neither key of it is wiped with the session.
struct CloudSecIdentity {
    Secret<kScalarSize> devicePrivateKey;
    EncodedPoint devicePublicKey{};
    EncodedPoint serverPublicKey{};  // not yet known to be on the curve
    bool identityLoaded = false;     // both keys are in place
};
extern CloudSecIdentity& cloud_identity;

// Keys and salt are written by the handshake only, while nothing is established.
struct CloudSecSession {
    Secret<kAeadKeySize> txKey;
    Secret<kAeadKeySize> rxKey;
    Secret<32> nonceSalt;         // only the first 12 bytes are used
    AeadKey tx_cipher;            // txKey's schedule, guarded by the sealing lock
    AeadKey rx_cipher;            // rxKey's schedule, guarded by the opening lock
    std::uint64_t txCounter = 0;  // packets sealed so far, guarded by the sealing lock
    std::uint64_t rxCounter = 0;  // packets opened so far, guarded by the opening lock
    // Set when everything above is in place; cleared under both locks.
    std::atomic<bool> established{false};
};

// From here on nothing is sealed or opened; waits for what is going on.
void EndSession(CloudSecSession* session);

// The salt's first bytes, with the counter in those from the fifth on.
AeadNonce NonceFor(const Secret<32>& salt, std::uint64_t counter);

// The seeded generator of CloudSecInitRng.
mbedtls_ctr_drbg_context* CloudSecRng();

// A type code's letters, for "%c%c%c%c": from the most significant byte down.
constexpr char TypeLetter(std::uint32_t type, unsigned index) {
    return static_cast<char>(type >> (24 - 8 * index) & 0xFF);
}

}  // namespace tarvik
