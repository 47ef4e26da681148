// Compares with OpenSSL's AES under the same key schedule, which only its low-level functions take.
// Linux only, where OpenSSL is available.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <gtest/gtest.h>
#include <openssl/aes.h>

#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "transport/serial/serial_cipher.h"
#include "unit/transport/serial_seal.h"

namespace tarvik::test {
namespace {

using Block = std::array<std::uint8_t, 16>;

AES_KEY ScheduleOfZeroes() {
    AES_KEY key;
    std::memset(&key, 0, sizeof key);
    key.rounds = 14;
    return key;
}

std::vector<Block> RandomBlocks(std::size_t count) {
    std::mt19937 random(20260301);
    std::vector<Block> blocks(count);
    for (Block& block : blocks) {
        for (std::uint8_t& byte : block)
            byte = static_cast<std::uint8_t>(random());
    }
    return blocks;
}

TEST(SerialCipherAgainstOpenSsl, DeciphersTheSameBlocks) {
    const AES_KEY key = ScheduleOfZeroes();
    for (const Block& block : RandomBlocks(1000)) {
        Block expected;
        AES_decrypt(block.data(), expected.data(), &key);
        Block actual = block;
        SerialCipher cipher;
        cipher.Decipher(actual.data(), actual.size());
        ASSERT_EQ(actual, expected);
    }
}

TEST(SerialCipherAgainstOpenSsl, TestSealerEnciphersTheSameBlocks) {
    const AES_KEY key = ScheduleOfZeroes();
    for (const Block& block : RandomBlocks(1000)) {
        Block expected;
        AES_encrypt(block.data(), expected.data(), &key);
        Block actual = block;
        EncipherBlock(actual.data());
        ASSERT_EQ(actual, expected);
    }
}

TEST(SerialCipherAgainstOpenSsl, DeciphersTheSameChain) {
    AES_KEY key = ScheduleOfZeroes();
    Block vector{};
    SerialCipher cipher;
    const std::vector<Block> blocks = RandomBlocks(64);
    // In packets of one, two, three… blocks.
    std::size_t at = 0;
    for (std::size_t size = 1; at + size <= blocks.size(); at += size, ++size) {
        const std::uint8_t* sealed = blocks[at].data();
        std::vector<std::uint8_t> expected(size * 16);
        AES_cbc_encrypt(sealed, expected.data(), expected.size(), &key, vector.data(), AES_DECRYPT);
        std::vector<std::uint8_t> actual(sealed, sealed + size * 16);
        cipher.Decipher(actual.data(), actual.size());
        ASSERT_EQ(actual, expected);
    }
}

}  // namespace
}  // namespace tarvik::test
