// The relay's side of the secure channel: its half of the key exchange, and sealed packets both
// ways. Written from the protocol alone, on another cryptographic library than the device's side.

#pragma once

#include <string>

#include "relay/crypto.h"

namespace brennix {

class SecureChannel {
public:
    // All that the key exchange derives; what tests compare with the device's side.
    struct Derived {
        Key shared1;  // relay static, device ephemeral
        Key shared2;  // relay ephemeral, device static
        Key from_device;
        Key to_device;
        Key nonce_salt;
        Point device;  // the device's static public key
    };

    // Judges NHS1 and makes the NHS2 to it; afterwards packets are sealed. On failure the channel
    // stays as it was and `wrong` says why.
    std::optional<Bytes> Answer(ByteSpan nhs1, const KeyPair& relay, const KeyPair& ephemeral,
                                ByteSpan welcome, std::string* wrong);
    bool IsEstablished() const { return established_; }
    const Derived& Values() const { return derived_; }

    Bytes Seal(ByteSpan packet);  // the CRYP packet
    // Nothing, and the count of packets unchanged, when `sealed` is not the next of the device.
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
