#include "transport/serial/serial_cipher.h"

#include <gtest/gtest.h>

#include <vector>

#include "unit/transport/serial_seal.h"

namespace tarvik::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Counting(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 37 + 11);
    return bytes;
}

Bytes Decipher(SerialCipher* cipher, Bytes bytes) {
    cipher->Decipher(bytes.data(), bytes.size());
    return bytes;
}

// Expected blocks from OpenSSL's AES_decrypt with an AES_KEY of zero bytes and 14 rounds.
TEST(SerialCipherTest, DeciphersKnownBlocksUnderAnAllZeroSchedule) {
    SerialCipher zero;
    EXPECT_EQ(Decipher(&zero, Bytes(16, 0)), Bytes(16, 0x75));

    SerialCipher counting;
    Bytes block(16);
    for (std::size_t i = 0; i < 16; ++i)
        block[i] = static_cast<std::uint8_t>(i);
    EXPECT_EQ(Decipher(&counting, block), (Bytes{0x33, 0x2A, 0x0C, 0x53, 0x6F, 0x1D, 0x12, 0x70,
                                                 0x5E, 0x6A, 0xD0, 0x93, 0x62, 0x05, 0x88, 0x88}));

    SerialCipher falling;
    for (std::size_t i = 0; i < 16; ++i)
        block[i] = static_cast<std::uint8_t>(0xF0 - 7 * i);
    EXPECT_EQ(Decipher(&falling, block), (Bytes{0x1F, 0x65, 0x6A, 0xBB, 0xE2, 0x71, 0xE0, 0xEC,
                                                0x20, 0x00, 0x8B, 0x0F, 0x12, 0x4D, 0x38, 0xDC}));
}

// AES-256 with the key of 32 zero bytes enciphers the zero block to
// DC95C078A2408989AD48A21492842087.
TEST(SerialCipherTest, AllZeroScheduleIsNotTheScheduleOfTheZeroKey) {
    const Bytes of_zero_key = {0xDC, 0x95, 0xC0, 0x78, 0xA2, 0x40, 0x89, 0x89,
                               0xAD, 0x48, 0xA2, 0x14, 0x92, 0x84, 0x20, 0x87};
    SerialCipher cipher;
    EXPECT_NE(Decipher(&cipher, of_zero_key), Bytes(16, 0));
}

TEST(SerialCipherTest, EachBlockIsCombinedWithThePreviousCipherBlock) {
    const Bytes plain = Counting(160);
    SerialCipher cipher;
    EXPECT_EQ(Decipher(&cipher, SerialSealer().Encipher(plain)), plain);
}

TEST(SerialCipherTest, ChainContinuesAcrossPackets) {
    SerialSealer sealer;
    SerialCipher cipher;
    const Bytes plain = Counting(48);
    const Bytes first = sealer.Encipher(plain);
    const Bytes second = sealer.Encipher(plain);
    EXPECT_NE(first, second);
    EXPECT_EQ(Decipher(&cipher, first), plain);
    EXPECT_EQ(Decipher(&cipher, second), plain);
    EXPECT_NE(Decipher(&cipher, first), plain) << "out of order the first block differs";
}

TEST(SerialCipherTest, BytesAfterTheLastWholeBlockAreUnchanged) {
    for (std::size_t extra = 0; extra < 16; ++extra) {
        const Bytes plain = Counting(32);
        const Bytes rest = Counting(extra);
        Bytes sealed = SerialSealer().Encipher(plain);
        sealed.insert(sealed.end(), rest.begin(), rest.end());
        Bytes expected = plain;
        expected.insert(expected.end(), rest.begin(), rest.end());
        SerialCipher cipher;
        EXPECT_EQ(Decipher(&cipher, sealed), expected) << extra;
    }
}

TEST(SerialCipherTest, PartialBlockLeavesTheChainUnchanged) {
    SerialSealer sealer;
    SerialCipher cipher;
    EXPECT_EQ(Decipher(&cipher, Counting(15)), Counting(15));
    EXPECT_EQ(Decipher(&cipher, sealer.Encipher(Counting(16))), Counting(16));
}

}  // namespace
}  // namespace tarvik::test
