// The inverse AES cipher is implemented here because crypto libraries take keys, not key schedules,
// and filling a library's private record by hand would depend on its layout. Nothing is secret
// under a schedule that everybody knows, so table look-ups leak nothing.
#include "transport/serial/serial_cipher.h"

#include <bit>
#include <cstring>

namespace tarvik {

namespace {

using Block = std::array<std::uint8_t, kCipherBlock>;

// Multiplication in AES's field of 256 elements.
constexpr std::uint8_t Multiply(std::uint8_t a, std::uint8_t b) {
    std::uint8_t product = 0;
    for (; b != 0; b = static_cast<std::uint8_t>(b >> 1)) {
        if ((b & 1) != 0) product = static_cast<std::uint8_t>(product ^ a);
        const bool carry = (a & 0x80) != 0;
        a = static_cast<std::uint8_t>((a << 1) ^ (carry ? 0x1B : 0));
    }
    return product;
}

// The S-box maps an element to its reciprocal, followed by an affine map; this is its inverse.
constexpr std::array<std::uint8_t, 256> MakeInverseSBox() {
    std::array<std::uint8_t, 256> inverse{};
    std::uint8_t power = 1;       // steps through all elements but 0
    std::uint8_t reciprocal = 1;  // of `power`
    do {
        power = Multiply(power, 0x03);
        reciprocal = Multiply(reciprocal, 0xF6);
        const auto rotated = [reciprocal](int by) { return std::rotl(reciprocal, by); };
        const std::uint8_t image = static_cast<std::uint8_t>(reciprocal ^ rotated(1) ^ rotated(2) ^
                                                             rotated(3) ^ rotated(4) ^ 0x63);
        inverse[image] = power;
    } while (power != 1);
    inverse[0x63] = 0;
    return inverse;
}
constexpr std::array<std::uint8_t, 256> kInverseSBox = MakeInverseSBox();
static_assert(kInverseSBox[0x63] == 0x00 && kInverseSBox[0x7C] == 0x01);
static_assert(kInverseSBox[0x00] == 0x52 && kInverseSBox[0xFF] == 0x7D);

void Add(Block* state, const Block& other) {
    for (std::size_t i = 0; i < kCipherBlock; ++i) {
        (*state)[i] = static_cast<std::uint8_t>((*state)[i] ^ other[i]);
    }
}

// Row r of the state (bytes r, r + 4, r + 8, r + 12) moves right by r places; then every byte goes
// through the inverse S-box.
void InverseShiftAndSubstitute(Block* state) {
    const Block from = *state;
    for (std::size_t i = 0; i < kCipherBlock; ++i) {
        const std::size_t row = i % 4;
        (*state)[(i + 4 * row) % kCipherBlock] = kInverseSBox[from[i]];
    }
}

void InverseMixColumns(Block* state) {
    static constexpr std::uint8_t kFactors[4] = {14, 11, 13, 9};
    const Block from = *state;
    for (std::size_t i = 0; i < kCipherBlock; ++i) {
        const std::size_t column = i - i % 4;
        std::uint8_t sum = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            sum =
                static_cast<std::uint8_t>(sum ^ Multiply(from[column + (i + k) % 4], kFactors[k]));
        }
        (*state)[i] = sum;
    }
}

}  // namespace

void SerialCipher::Decipher(std::uint8_t* data, std::size_t size) {
    for (; size >= kCipherBlock; data += kCipherBlock, size -= kCipherBlock) {
        Block cipher{};
        std::memcpy(cipher.data(), data, kCipherBlock);

        Block state = cipher;
        Add(&state, round_keys_[kCipherRounds]);
        for (std::size_t round = kCipherRounds - 1; round > 0; --round) {
            InverseShiftAndSubstitute(&state);
            Add(&state, round_keys_[round]);
            InverseMixColumns(&state);
        }
        InverseShiftAndSubstitute(&state);
        Add(&state, round_keys_[0]);

        Add(&state, chain_);
        chain_ = cipher;
        std::memcpy(data, state.data(), kCipherBlock);
    }
}

}  // namespace tarvik
