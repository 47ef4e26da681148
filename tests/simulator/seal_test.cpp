// Sealed packets, checked against the definition of the cipher.

#include <gtest/gtest.h>

#include <array>

#include "host.h"
#include "protocol/seal.h"

namespace brennix::test {
namespace {

using Block = std::array<std::uint8_t, 16>;

// x times 2 in the AES field.
std::uint8_t Double(std::uint8_t x) {
    return static_cast<std::uint8_t>((x << 1) ^ ((x & 0x80) != 0 ? 0x1B : 0));
}

std::uint8_t Multiply(std::uint8_t a, std::uint8_t b) {
    std::uint8_t product = 0;
    for (; b != 0; b = static_cast<std::uint8_t>(b >> 1), a = Double(a)) {
        if ((b & 1) != 0) product ^= a;
    }
    return product;
}

std::uint8_t Inverse(std::uint8_t x) {
    for (int y = 1; y < 256; ++y) {
        if (Multiply(x, static_cast<std::uint8_t>(y)) == 1) return static_cast<std::uint8_t>(y);
    }
    return 0;
}

std::uint8_t Substitute(std::uint8_t x) {
    const std::uint8_t inverse = Inverse(x);
    std::uint8_t result = 0x63;
    for (int turn = 0; turn < 5; ++turn) {
        result ^= static_cast<std::uint8_t>(inverse << turn | inverse >> (8 - turn));
    }
    return result;
}

std::uint8_t SubstituteBack(std::uint8_t y) {
    static const auto kTable = [] {
        std::array<std::uint8_t, 256> table{};
        for (int x = 0; x < 256; ++x) {
            table[Substitute(static_cast<std::uint8_t>(x))] = static_cast<std::uint8_t>(x);
        }
        return table;
    }();
    return kTable[y];
}

void UnmixColumns(Block* state) {
    static constexpr std::uint8_t kFactors[] = {14, 11, 13, 9};
    for (std::size_t column = 0; column < 16; column += 4) {
        std::array<std::uint8_t, 4> mixed{};
        for (std::size_t row = 0; row < 4; ++row) {
            for (std::size_t i = 0; i < 4; ++i) {
                mixed[row] ^= Multiply((*state)[column + i], kFactors[(i + 4 - row) % 4]);
            }
        }
        std::copy(mixed.begin(), mixed.end(), state->begin() + static_cast<int>(column));
    }
}

void UnshiftRowsAndSubstituteBack(Block* state) {
    Block moved{};
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = 0; column < 4; ++column) {
            moved[4 * ((column + row) % 4) + row] = SubstituteBack((*state)[4 * column + row]);
        }
    }
    *state = moved;
}

// Fourteen rounds with all-zero round keys, whose addition changes nothing.
Block Decipher(Block state) {
    UnshiftRowsAndSubstituteBack(&state);
    for (int round = 13; round > 0; --round) {
        UnmixColumns(&state);
        UnshiftRowsAndSubstituteBack(&state);
    }
    return state;
}

// Opens whole blocks; `chain` continues from call to call.
Bytes Open(ByteSpan sealed, Block* chain) {
    Bytes plain;
    for (std::size_t at = 0; at + 16 <= sealed.size(); at += 16) {
        Block cipher{};
        std::copy_n(sealed.begin() + static_cast<std::ptrdiff_t>(at), 16, cipher.begin());
        const Block block = Decipher(cipher);
        for (std::size_t i = 0; i < 16; ++i) {
            plain.push_back(static_cast<std::uint8_t>(block[i] ^ (*chain)[i]));
        }
        *chain = cipher;
    }
    return plain;
}

TEST(Decipher, SubstitutionMatchesTheStandard) {
    EXPECT_EQ(Substitute(0x00), 0x63);
    EXPECT_EQ(Substitute(0x53), 0xED);
    EXPECT_EQ(Substitute(0xFF), 0x16);
}

TEST(Seal, OpensByTheCiphersDefinition) {
    Seal seal;
    Block chain{};
    for (int i = 0; i < 3; ++i) {  // the chain continues from packet to packet
        const Bytes packet = SingleRequest(static_cast<std::uint32_t>(i), Bytes(21, 0x5A));
        const Bytes sealed = seal.Close(packet);
        EXPECT_EQ(TypeName(PacketType(sealed)), "CRYP");
        EXPECT_EQ(sealed.size(), 8 + 64u);
        Bytes plain = Open(ByteSpan(sealed).subspan(8), &chain);
        EXPECT_EQ(Bytes(plain.begin() + 53, plain.end()), Bytes(11, 0));
        plain.resize(53);
        EXPECT_EQ(plain, packet);
    }
}

TEST(Seal, RestartsAfterReset) {
    Seal seal;
    const Bytes first = seal.Close(Sync());
    EXPECT_NE(seal.Close(Sync()), first);
    seal.Reset();
    EXPECT_EQ(seal.Close(Sync()), first);
}

TEST(SealedAnswer, ContainsTheAnswer) {
    RunningSimulator simulator;
    HostPort host(simulator.PortPath());
    ASSERT_TRUE(host.Sync());
    simulator.Command(R"(next 1 {"seal": true})");
    host.Send(SingleRequest(3, {0x3E, 0x00}));
    const Bytes sealed = host.Read().value();
    ASSERT_EQ(TypeName(PacketType(sealed)), "CRYP");
    Block chain{};
    Bytes plain = Open(ByteSpan(sealed).subspan(8), &chain);
    plain.resize(PacketLength(plain));
    EXPECT_EQ(AsSingle(plain).value().data, (Bytes{0x7E, 0x00}));
}

TEST(SealedAnswer, NeverExceedsTheLongestPacket) {
    RunningSimulator simulator;
    HostPort host(simulator.PortPath());
    ASSERT_TRUE(host.Sync());
    simulator.Command("data engine F190 " + ToHex(Bytes(4070, 0x41)));
    simulator.Command(R"(next 1 {"seal": true})");
    host.Send(SingleRequest(3, {0x22, 0xF1, 0x90}));
    Block chain{};
    for (const std::size_t size : {4088u, 56u}) {  // two fragments, each sealed
        const Bytes sealed = host.Read().value();
        EXPECT_EQ(sealed.size(), size);
        const Bytes plain = Open(ByteSpan(sealed).subspan(8), &chain);
        EXPECT_EQ(TypeName(PacketType(plain)), "FRAG");
    }
}

}  // namespace
}  // namespace brennix::test
