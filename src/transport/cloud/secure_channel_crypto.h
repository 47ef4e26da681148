#pragma once

#include <mbedtls/gcm.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "link/wire.h"
#include "transport/cloud/mbedtls_context.h"

// The channel's primitives: points of P-256, HKDF with SHA-256, AES-256-GCM. All return false on
// failure and log nothing.
namespace tarvik {

inline constexpr std::size_t kScalarSize = 32;  // of a private key and of a shared secret
inline constexpr std::size_t kPointSize = 65;   // uncompressed: 0x04, X, Y
inline constexpr std::size_t kAeadKeySize = 32;
inline constexpr std::size_t kAeadTagSize = 16;

using EncodedPoint = std::array<std::uint8_t, kPointSize>;
using AeadNonce = std::array<std::uint8_t, 12>;

// Reads a point and checks that it is on the curve and not the one at infinity. Reading alone does
// not check that, and products with points of another curve would reveal the private key bit by
// bit.
bool ReadPublicKey(EcGroup* group, const EncodedPoint& from, EcPoint* point);

// Without salt.
bool HkdfExtract(ByteView ikm, Secret<32>* prk);
bool HkdfExpand(const Secret<32>& prk, std::string_view info, Secret<32>* out);

// The salt's first bytes, the ones from the fifth on XORed with the counter.
AeadNonce NonceFor(const Secret<32>& salt, std::uint64_t counter);

// An AES-256-GCM key whose schedule is set up once. Not for two threads at once.
class AeadKey {
public:
    bool Set(const Secret<kAeadKeySize>& key);
    void Wipe() { gcm_.Reset(); }
    void TakeOver(AeadKey* other) { gcm_.TakeOver(&other->gcm_); }  // leaves the other wiped

    // `out` has the size of the input and may be the input.
    bool Encrypt(const AeadNonce& nonce, std::string_view additional, ByteView plain,
                 std::uint8_t* out, std::uint8_t* tag);
    // False: nothing of the plain text is left in `out`.
    bool Decrypt(const AeadNonce& nonce, std::string_view additional, ByteView cipher,
                 const std::uint8_t* tag, std::uint8_t* out);

private:
    MbedTlsContext<mbedtls_gcm_context, mbedtls_gcm_init, mbedtls_gcm_free> gcm_;
};

}  // namespace tarvik
