#include "link/packet.h"

#include <thread>

#include "link/packet_counters.h"
#include "link_support.h"

namespace tarvik::test {
namespace {

TEST(Packet, SyncIsEightBytesOnTheWire) {
    const PacketPtr sync = MakePacket(kTypeSync, MIN_PKT_SIZE);
    EXPECT_EQ(BytesOf(sync), (Bytes{0x43, 0x4E, 0x59, 0x53, 8, 0, 0, 0}));
}

TEST(Packet, LettersOfATypeAreReversedOnTheWire) {
    struct Row {
        std::uint32_t type;
        const char* wire;
    };
    constexpr Row kRows[] = {
        {kTypeSync, "CNYS"}, {kTypeIden, "NEDI"}, {kTypeLogn, "NGOL"}, {kTypeAddr, "RDDA"},
        {kTypeCreq, "QERC"}, {kTypeCres, "SERC"}, {kTypeBusy, "YSUB"}, {kTypeRawc, "CWAR"},
        {kTypeTspr, "RPST"}, {kTypeDoip, "PIOD"}, {kTypeTele, "ELET"}, {kTypeFrag, "GARF"},
        {kTypePing, "GNIP"}, {kTypeRepl, "LPER"}, {kTypeLog, " GOL"},  {kTypeCryp, "PYRC"},
    };
    for (const Row& row : kRows) {
        const PacketPtr packet = MakePacket(row.type, MIN_PKT_SIZE);
        EXPECT_EQ(std::memcmp(packet->Bytes(), row.wire, 4), 0) << row.wire;
    }
    EXPECT_EQ(kTypeCreq, 0x43524551u);
}

TEST(Packet, NewPacketIsZeroAfterItsHeader) {
    const PacketPtr packet = MakePacket(kTypeRawc, 24);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->length, 24u);
    for (std::size_t i = MIN_PKT_SIZE; i < packet->length; ++i)
        EXPECT_EQ(packet->Bytes()[i], 0);
}

TEST(Packet, PacketShorterThanItsHeaderIsNotMade) {
    EXPECT_EQ(MakePacket(kTypeSync, MIN_PKT_SIZE - 1), nullptr);
    EXPECT_EQ(MakePacket(kTypeSync, 0), nullptr);
}

TEST(Packet, CopyHasTheSameBytesInItsOwnBlock) {
    const PacketPtr packet = PacketOf(kTypeLog, {1, 2, 3});
    const PacketPtr copy = CopyPacket(*packet);
    EXPECT_NE(copy.get(), packet.get());
    EXPECT_EQ(BytesOf(copy), BytesOf(packet));
}

TEST(Packet, ReleasedPacketsLeakNoMemory) {
    const MemoryUse before = LiveMemory();
    { const PacketPtr copy = CopyPacket(*MakePacket(kTypePing, 100)); }
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

PacketPtr Login() {
    PacketPtr packet = MakePacket(kTypeLogn, kLoginSize);
    for (std::uint8_t i = 0; i < 6; ++i)
        packet->Bytes()[12 + i] = static_cast<std::uint8_t>(i + 1);
    packet->SetU32(20, 13);
    std::memcpy(packet->Bytes() + 64, "Brennix", 7);
    return packet;
}

TEST(Login, HoldsTheWholePacketUnchanged) {
    const PacketPtr packet = Login();
    packet->Bytes()[191] = 0x5A;
    const LoginRecord login = LoginFromPacket(*packet);
    EXPECT_EQ(std::memcmp(login.bytes, packet->Bytes(), kLoginSize), 0);
    EXPECT_EQ(login.Model(), 13u);
    EXPECT_EQ(login.Mac()[0], 1);
    EXPECT_EQ(login.Mac()[5], 6);
    EXPECT_STREQ(LoginDeviceName(login).text, "Brennix");
}

TEST(Login, ShorterPacketIsFilledWithZeros) {
    const PacketPtr whole = Login();
    const PacketPtr cut = MakePacket(kTypeLogn, 66);
    std::memcpy(cut->Bytes() + 8, whole->Bytes() + 8, 58);
    const LoginRecord login = LoginFromPacket(*cut);
    EXPECT_EQ(login.Model(), 13u);
    EXPECT_STREQ(LoginDeviceName(login).text, "Br");
    for (std::size_t i = 66; i < kLoginSize; ++i)
        EXPECT_EQ(login.bytes[i], 0);
}

TEST(Login, LongerPacketIsCutToTheRecord) {
    const PacketPtr packet = MakePacket(kTypeLogn, 4096);
    packet->SetU32(20, 5);
    EXPECT_EQ(LoginFromPacket(*packet).Model(), 5u);
}

TEST(Login, NameThatFillsItsFieldIsBoundedByIt) {
    const PacketPtr packet = Login();
    std::memset(packet->Bytes() + 64, 'n', 32);
    std::memset(packet->Bytes() + 96, 't', 16);  // the next field follows at once
    EXPECT_EQ(LoginDeviceName(LoginFromPacket(*packet)).text, std::string(32, 'n'));
}

TEST(Login, NameEndsAtItsFirstZero) {
    const PacketPtr packet = Login();
    std::memcpy(packet->Bytes() + 64, "Br\x01ix\0old", 9);
    const DeviceName name = LoginDeviceName(LoginFromPacket(*packet));
    EXPECT_STREQ(name.text, "Br\x01ix");
    EXPECT_EQ(name.text[6], '\0') << "what follows is no part of it";
}

TEST(Login, PrintableNameHasNoControlCharacters) {
    const PacketPtr packet = Login();
    std::memcpy(packet->Bytes() + 64, "Br\x1B[2J\r\n\x7F\xC3\xBC", 12);
    const LoginRecord login = LoginFromPacket(*packet);
    EXPECT_STREQ(PrintableDeviceName(login).text, "Br.[2J...\xC3\xBC");
    EXPECT_STREQ(LoginDeviceName(login).text, "Br\x1B[2J\r\n\x7F\xC3\xBC");
}

TEST(TypeLetters, AreReadableOrAsStored) {
    EXPECT_STREQ(ReadableType(kTypeCreq).text, "CREQ");
    EXPECT_STREQ(TypeAsStored(MakePacket(kTypeCreq, 8)->Bytes()).text, "QERC");
}

TEST(TypeLetters, ControlCharactersArePoints) {
    EXPECT_STREQ(ReadableType(0x0A1B0041).text, "...A");
    EXPECT_STREQ(ReadableType(0x41007FE4).text, "A..\xE4");
    EXPECT_STREQ(TypeAsStored(MakePacket(0x0A1B0041, 8)->Bytes()).text, "A...");
}

TEST(PacketCounters, CountPacketsAndBytesOfAllThreads) {
    const PacketCounters before = ReadPacketCounters();
    {
        const auto count = [] {
            for (int n = 0; n < 1000; ++n) {
                CountSentPacket(8);
                CountReceivedPacket(20);
            }
        };
        const Thread threads[] = {Thread(count), Thread(count), Thread(count), Thread(count)};
    }
    const PacketCounters after = ReadPacketCounters();
    EXPECT_EQ(after.sent_packets - before.sent_packets, 4000u);
    EXPECT_EQ(after.sent_bytes - before.sent_bytes, 32000u);
    EXPECT_EQ(after.received_packets - before.received_packets, 4000u);
    EXPECT_EQ(after.received_bytes - before.received_bytes, 80000u);
}

}  // namespace
}  // namespace tarvik::test
