// The relay's side of the secure channel: its half of the key exchange, and sealed packets in both
// directions. Written from the protocol alone, with another cryptographic library than the device's
// side.

#pragma once

#include <string>

#include "relay/crypto.h"

namespace brennix {

class SecureChannel {
public:
    // Everything that the key exchange derives; tests compare it with the device's side.
    struct Derived {
        Key shared1;  // relay static, device ephemeral
        Key shared2;  // relay ephemeral, device static
        Key from_device;
        Key to_device;
        Key nonce_salt;
        Point device;  // the device's static public key
    };

    // Checks NHS1 and makes the answering NHS2; afterwards packets are sealed. On failure the
    // channel is unchanged and `wrong` says why.
    std::optional<Bytes> Answer(ByteSpan nhs1, const KeyPair& relay, const KeyPair& ephemeral,
                                ByteSpan welcome, std::string* wrong);
    bool IsEstablished() const { return established_; }
    const Derived& Values() const { return derived_; }

    Bytes Seal(ByteSpan packet);  // the CRYP packet
    // Empty, and the packet count unchanged, if `sealed` is not the device's next packet.
    std::optional<Bytes> Open(ByteSpan sealed, std::string* wrong);

private:
    Nonce MakeNonce(std::uint64_t counter) const;

    Derived derived_{};
    bool established_ = false;
    std::uint64_t sealed_ = 0;
    std::uint64_t opened_ = 0;
};

constexpr std::size_t kFirstMessageSize = 156;  // NHS1
constexpr std::size_t kSecondMessageHead = 96;  // NHS2 before the welcome
constexpr std::size_t kSealedHead = 24;         // CRYP before the inner packet

}  // namespace brennix
