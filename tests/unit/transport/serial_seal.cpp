#include "unit/transport/serial_seal.h"

#include <algorithm>
#include <array>
#include <bit>

namespace tarvik::test {

namespace {

std::uint8_t Double(std::uint8_t a) {
    return static_cast<std::uint8_t>((a << 1) ^ ((a & 0x80) != 0 ? 0x1B : 0));
}

std::uint8_t Times(std::uint8_t a, std::uint8_t b) {
    std::uint8_t product = 0;
    for (int bit = 7; bit >= 0; --bit) {
        product = Double(product);
        if ((b >> bit & 1) != 0) product = static_cast<std::uint8_t>(product ^ a);
    }
    return product;
}

// Finds reciprocals by search, unlike the library: the product with the element is one.
std::array<std::uint8_t, 256> MakeSBox() {
    std::array<std::uint8_t, 256> box{};
    for (unsigned a = 0; a < 256; ++a) {
        std::uint8_t reciprocal = 0;
        for (unsigned b = 1; b < 256; ++b) {
            if (Times(static_cast<std::uint8_t>(a), static_cast<std::uint8_t>(b)) == 1) {
                reciprocal = static_cast<std::uint8_t>(b);
            }
        }
        std::uint8_t image = 0x63;
        for (int by = 0; by < 5; ++by) {
            image = static_cast<std::uint8_t>(image ^ std::rotl(reciprocal, by));
        }
        box[a] = image;
    }
    return box;
}

}  // namespace

void EncipherBlock(std::uint8_t* block) {
    static const std::array<std::uint8_t, 256> kBox = MakeSBox();
    for (int round = 1; round <= 14; ++round) {
        std::uint8_t shifted[4][4];  // [column][row]
        for (std::size_t column = 0; column < 4; ++column) {
            for (std::size_t row = 0; row < 4; ++row) {
                shifted[column][row] = kBox[block[(column + row) % 4 * 4 + row]];
            }
        }
        for (std::size_t column = 0; column < 4; ++column) {
            const std::uint8_t* in = shifted[column];
            for (std::size_t row = 0; row < 4; ++row) {
                const std::uint8_t mixed = static_cast<std::uint8_t>(
                    Double(in[row]) ^ Double(in[(row + 1) % 4]) ^ in[(row + 1) % 4] ^
                    in[(row + 2) % 4] ^ in[(row + 3) % 4]);
                block[column * 4 + row] = round < 14 ? mixed : in[row];
            }
        }
    }
}

std::vector<std::uint8_t> SerialSealer::Encipher(std::vector<std::uint8_t> blocks) {
    for (std::size_t at = 0; at + 16 <= blocks.size(); at += 16) {
        std::uint8_t* block = blocks.data() + at;
        for (std::size_t i = 0; i < 16; ++i) {
            block[i] = static_cast<std::uint8_t>(block[i] ^ chain_[i]);
        }
        EncipherBlock(block);
        std::copy(block, block + 16, chain_);
    }
    return blocks;
}

}  // namespace tarvik::test
