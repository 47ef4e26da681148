#include "link/raw_frame.h"

#include "link_support.h"

namespace tarvik::test {
namespace {

Bytes FrameBytesOf(const Packet& packet) {
    const auto frame = RawFrameView::Of(packet);
    if (!frame) return {};
    return {frame->Data().data, frame->Data().data + frame->Data().size};
}

PacketPtr RawPacket(std::uint16_t count, const Bytes& data) {
    Bytes payload = {0x23, 0x01, 0x00, 0x00, 0, 0, 0, 0};
    StoreU16(payload.data() + 4, count);
    payload.insert(payload.end(), data.begin(), data.end());
    return PacketOf(kTypeRawc, payload);
}

const Bytes kEight = {1, 2, 3, 4, 5, 6, 7, 8};

// The flags of everything that was sent so far.
std::vector<std::uint16_t> SentFlags(Dongle* dongle) {
    std::vector<std::uint16_t> flags;
    while (const PacketPtr packet = TakePacket(&dongle->tx, 0)) {
        EXPECT_EQ(packet->type, kTypeRawc);
        EXPECT_EQ(packet->length, 24u);
        flags.push_back(packet->U16(14));
    }
    return flags;
}

TEST(RawFrame, IsReadFromItsPacket) {
    const PacketPtr packet = RawPacket(3, {0xDE, 0xAD, 0xBE, 0, 0, 0, 0, 0});
    const auto frame = RawFrameView::Of(*packet);
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->CanId(), 0x123u);
    EXPECT_EQ(FrameBytesOf(*packet), (Bytes{0xDE, 0xAD, 0xBE}));
}

TEST(RawFrame, OfFifteenBytesIsNone) {
    EXPECT_FALSE(RawFrameView::Of(*MakePacket(kTypeRawc, 15)).has_value());
    EXPECT_FALSE(RawFrameView::Of(*MakePacket(kTypeRawc, 8)).has_value());
    EXPECT_TRUE(RawFrameView::Of(*MakePacket(kTypeRawc, 16)).has_value());
}

TEST(RawFrame, DataIsCutToThePacketAndToEightBytes) {
    EXPECT_EQ(FrameBytesOf(*RawPacket(8, kEight)), kEight);
    EXPECT_EQ(FrameBytesOf(*RawPacket(8, {1, 2})), (Bytes{1, 2}));
    EXPECT_EQ(FrameBytesOf(*RawPacket(8, {})), Bytes{});
    EXPECT_EQ(FrameBytesOf(*RawPacket(0xFFFF, kEight)), kEight);
    EXPECT_EQ(FrameBytesOf(*RawPacket(9, {1, 2, 3, 4, 5, 6, 7, 8, 9})), kEight);
}

TEST(RawFrame, IsSentWithUpToEightBytes) {
    Dongle dongle;
    SendRawFrame(&dongle, 0x18DAF110, {kEight.data(), kEight.size()});
    EXPECT_EQ(BytesOf(TakePacket(&dongle.tx, 0)),
              (Bytes{'C', 'W', 'A', 'R', 24, 0, 0, 0, 0x10, 0xF1, 0xDA, 0x18,
                     8,   0,   0,   0,   1,  2, 3, 4, 5,    6,    7,    8}));
    SendRawFrame(&dongle, 1, {kEight.data(), 1});
    EXPECT_EQ(
        BytesOf(TakePacket(&dongle.tx, 0)),
        (Bytes{'C', 'W', 'A', 'R', 24, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
    SendRawFrame(&dongle, 1, {});
    EXPECT_EQ(
        BytesOf(TakePacket(&dongle.tx, 0)),
        (Bytes{'C', 'W', 'A', 'R', 24, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(RawFrame, SwitchesCarryNoIdentifierAndNoData) {
    Dongle dongle;
    SwitchRawReception(&dongle, true);
    SwitchRawReception(&dongle, false);
    for (const std::uint8_t flags : Bytes{1, 2}) {
        EXPECT_EQ(BytesOf(TakePacket(&dongle.tx, 0)),
                  (Bytes{'C', 'W', 'A',   'R', 24, 0, 0, 0, 0, 0, 0, 0,
                         0,   0,   flags, 0,   0,  0, 0, 0, 0, 0, 0, 0}));
    }
}

TEST(RawFrame, OfNineBytesIsSentWithItsCountAlone) {
    Dongle dongle;
    const Bytes nine(9, 0x55);
    SendRawFrame(&dongle, 1, {nine.data(), nine.size()});
    const PacketPtr packet = TakePacket(&dongle.tx, 0);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->U16(12), 9u);
    EXPECT_EQ(packet->U32(16), 0u);
    EXPECT_EQ(packet->U32(20), 0u);
}

TEST(RawFrame, IsDroppedWithoutAConnectedDongle) {
    const MemoryUse before = LiveMemory();
    SendRawFrame(nullptr, 1, {kEight.data(), kEight.size()});
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    Dongle dongle;
    dongle.available = false;
    SendRawFrame(&dongle, 1, {kEight.data(), kEight.size()});
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

using Flags = std::vector<std::uint16_t>;

TEST(RawReception, EveryReceiverSendsItsOwnSwitches) {
    Dongle dongle;
    SwitchRawReception(&dongle, true);
    EXPECT_EQ(SentFlags(&dongle), Flags{1});
    SwitchRawReception(&dongle, true);
    SwitchRawReception(&dongle, false);
    SwitchRawReception(&dongle, false);
    EXPECT_EQ(SentFlags(&dongle), (Flags{1, 2, 2}));
}

TEST(RawReception, SwitchesNothingWithoutADongle) {
    SwitchRawReception(nullptr, true);
    SwitchRawReception(nullptr, false);
    Dongle dongle;
    dongle.available = false;
    SwitchRawReception(&dongle, true);
    SwitchRawReception(&dongle, false);
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

}  // namespace
}  // namespace tarvik::test
