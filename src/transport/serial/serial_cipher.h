#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarvik {

inline constexpr std::size_t kCipherBlock = 16;
inline constexpr std::size_t kCipherRounds = 14;  // AES-256

// Deciphers the sealed packets of serial ports: AES-256 in CBC mode whose chaining value goes on
// from packet to packet.
//
// Deliberate: no key is ever provisioned. The key *schedule* is all zero, that is, every round key
// is, which no AES-256 key expands to (the schedule of an all-zero key is not it).
class SerialCipher {
public:
    // In place. Whole blocks only: what remains behind the last one is left as it is.
    void Decipher(std::uint8_t* data, std::size_t size);

private:
    using Block = std::array<std::uint8_t, kCipherBlock>;

    std::array<Block, kCipherRounds + 1> round_keys_{};
    Block chain_{};  // the last cipher block seen
};

}  // namespace tarvik
