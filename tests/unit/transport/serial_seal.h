#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The dongle's end of sealed packets on a serial port: what the library has to decipher.
namespace tarvik::test {

// AES-256 forwards under a schedule whose round keys are all zero; one block of 16 bytes in place.
void EncipherBlock(std::uint8_t* block);

// CBC over whole blocks; the last cipher block is the start of the next packet.
class SerialSealer {
public:
    std::vector<std::uint8_t> Encipher(std::vector<std::uint8_t> blocks);

private:
    std::uint8_t chain_[16] = {};
};

}  // namespace tarvik::test
