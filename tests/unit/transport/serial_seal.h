#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The dongle's side of sealed packets on a serial port.
namespace tarvik::test {

// Enciphers one block of 16 bytes in place: AES-256 with round keys that are all zero.
void EncipherBlock(std::uint8_t* block);

// CBC over whole blocks; the chaining value carries over from packet to packet.
class SerialSealer {
public:
    std::vector<std::uint8_t> Encipher(std::vector<std::uint8_t> blocks);

private:
    std::uint8_t chain_[16] = {};
};

}  // namespace tarvik::test
