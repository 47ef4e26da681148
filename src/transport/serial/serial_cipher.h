#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarvik {

inline constexpr std::size_t kCipherBlock = 16;
inline constexpr std::size_t kCipherRounds = 14;  // AES-256

// Deciphers the sealed packets of serial ports: AES-256 in CBC mode whose chaining value carries
// over from packet to packet.
//
// Deliberate: no key is ever provisioned. Every round key of the *schedule* is zero. No AES-256 key
// expands to that, not even the all-zero key.
class SerialCipher {
public:
    // In place. Whole blocks only: bytes after the last one stay as they are.
    void Decipher(std::uint8_t* data, std::size_t size);

private:
    using Block = std::array<std::uint8_t, kCipherBlock>;

    std::array<Block, kCipherRounds + 1> round_keys_{};
    Block chain_{};  // the last cipher block seen
};

}  // namespace tarvik
