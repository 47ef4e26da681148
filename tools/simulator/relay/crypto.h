// The primitives of the secure channel, on OpenSSL: NIST P-256, HKDF with SHA-256, AES-256-GCM.

#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "protocol/wire.h"

namespace brennix {

constexpr std::size_t kPointSize = 65;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kNonceSize = 12;

using Key = std::array<std::uint8_t, 32>;
using Point = std::array<std::uint8_t, kPointSize>;  // uncompressed: 04, X, Y
using Nonce = std::array<std::uint8_t, kNonceSize>;
using Tag = std::array<std::uint8_t, kTagSize>;

struct KeyPair {
    Key secret;  // the scalar, big-endian
    Point point;
};

KeyPair MakeKeyPair();
// Empty if the number is not a private key of the curve.
std::optional<KeyPair> KeyPairOf(const Key& secret);
// The X coordinate of secret * point. Empty if the point is not on the curve.
std::optional<Key> SharedSecret(const Key& secret, const Point& point);

Key HkdfExtract(ByteSpan input);  // without salt
Key HkdfExpand(const Key& key, std::string_view info);

struct Encrypted {
    Tag tag;
    Bytes text;
};
Encrypted Encrypt(const Key& key, const Nonce& nonce, std::string_view associated, ByteSpan plain);
// Empty if key, nonce, associated data, tag and text do not belong together.
std::optional<Bytes> Decrypt(const Key& key, const Nonce& nonce, std::string_view associated,
                             const Tag& tag, ByteSpan text);

// The array at the start of `bytes`, which must be long enough.
template <typename Array>
Array Take(ByteSpan bytes) {
    Array array;
    for (std::size_t i = 0; i < array.size(); ++i)
        array[i] = bytes[i];
    return array;
}

}  // namespace brennix
