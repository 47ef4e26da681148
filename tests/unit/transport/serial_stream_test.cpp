#include "transport/serial/serial_stream.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace tarvik::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kSync = {0x43, 0x4E, 0x59, 0x53, 8, 0, 0, 0};

Bytes Wire(const char (&type)[5], std::uint32_t length) {
    Bytes packet(length);
    StoreU32(packet.data(), TypeCode(type));
    StoreU32(packet.data() + 4, length);
    for (std::uint32_t i = 8; i < length; ++i)
        packet[i] = static_cast<std::uint8_t>(i);
    return packet;
}

Bytes Header(const char (&type)[5], std::uint32_t length) {
    Bytes header(8);
    StoreU32(header.data(), TypeCode(type));
    StoreU32(header.data() + 4, length);
    return header;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// The events in comparable form: "S", "I<length>", "P".
class Stream {
public:
    void Feed(const Bytes& bytes) {
        ByteView input = {bytes.data(), bytes.size()};
        for (;;) {
            PacketPtr packet;
            switch (stream.Next(&input, &packet)) {
                case StreamEvent::kNeedsMore:
                    EXPECT_EQ(input.size, 0u);
                    return;
                case StreamEvent::kSynchronized:
                    events.push_back("S");
                    break;
                case StreamEvent::kInvalidHeader:
                    events.push_back("I" + std::to_string(stream.invalid_length()));
                    break;
                case StreamEvent::kPacket:
                    packets.emplace_back(packet->Bytes(), packet->Bytes() + packet->length);
                    events.push_back("P");
                    break;
            }
        }
    }
    void FeedInPiecesOf(std::size_t size, const Bytes& bytes) {
        for (std::size_t at = 0; at < bytes.size(); at += size) {
            const std::size_t end = std::min(at + size, bytes.size());
            Feed(Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                       bytes.begin() + static_cast<std::ptrdiff_t>(end)));
        }
    }
    std::string Events() const {
        std::string all;
        for (const std::string& event : events)
            all += event + " ";
        return all;
    }

    SerialStream stream;
    std::vector<std::string> events;
    std::vector<Bytes> packets;
};

TEST(SerialStreamTest, SyncHeaderIsExactlyTheEightBytes) {
    Stream stream;
    stream.Feed(kSync);
    EXPECT_TRUE(stream.stream.synced());
    EXPECT_EQ(stream.Events(), "S ");

    for (std::size_t i = 0; i < kSync.size(); ++i) {
        Stream other;
        Bytes changed = kSync;
        changed[i] ^= 0x01;
        other.Feed(changed);
        EXPECT_FALSE(other.stream.synced()) << i;
    }
}

TEST(SerialStreamTest, GarbageBeforeTheFirstSyncIsSkippedByteByByte) {
    for (std::size_t garbage = 1; garbage <= 20; ++garbage) {
        Stream stream;
        stream.Feed(Bytes(garbage, 0x43) + kSync + Wire("LOGN", 192));
        EXPECT_EQ(stream.Events(), "S P ") << garbage;
    }
}

TEST(SerialStreamTest, SyncInterruptedByASecondSyncIsFound) {
    Stream stream;
    stream.Feed(Bytes(kSync.begin(), kSync.begin() + 5) + kSync);
    EXPECT_EQ(stream.Events(), "S ");
}

TEST(SerialStreamTest, SyncSplitAcrossReadsIsFound) {
    for (std::size_t at = 1; at < kSync.size(); ++at) {
        Stream stream;
        const auto middle = kSync.begin() + static_cast<std::ptrdiff_t>(at);
        stream.Feed(Bytes{1, 2, 3} + Bytes(kSync.begin(), middle));
        EXPECT_FALSE(stream.stream.synced());
        stream.Feed(Bytes(middle, kSync.end()));
        EXPECT_TRUE(stream.stream.synced());
    }
}

TEST(SerialStreamTest, OutcomeDoesNotDependOnTheSizeOfReads) {
    const Bytes all = Bytes{9, 9, 9} + kSync + Wire("LOGN", 192) + Wire("PING", 8) +
                      Wire("CRES", 4096) + Header("BUSY", 7) + Bytes{1, 2, 3} + kSync +
                      Wire("BUSY", 12) + kSync;
    Stream whole;
    whole.Feed(all);
    EXPECT_EQ(whole.Events(), "S P P P I7 S P P ");
    for (const std::size_t size : {1u, 2u, 3u, 7u, 8u, 9u, 64u, 4096u}) {
        Stream pieces;
        pieces.FeedInPiecesOf(size, all);
        EXPECT_EQ(pieces.events, whole.events) << size;
        EXPECT_EQ(pieces.packets, whole.packets) << size;
    }
}

TEST(SerialStreamTest, PacketsAreReturnedInWireForm) {
    Stream stream;
    const Bytes packet = Wire("CRES", 33);
    stream.Feed(kSync + packet);
    ASSERT_EQ(stream.packets.size(), 1u);
    EXPECT_EQ(stream.packets.front(), packet);
}

TEST(SerialStreamTest, LengthsFrom8To4096ArePackets) {
    for (const std::uint32_t length : {8u, 9u, 4095u, 4096u}) {
        Stream stream;
        stream.Feed(kSync + Wire("TEST", length));
        EXPECT_EQ(stream.Events(), "S P ") << length;
    }
}

TEST(SerialStreamTest, LengthsBelow8AndAbove4096RestartTheSearch) {
    for (const std::uint32_t length : {0u, 7u, 4097u, 5000u, 0x80000000u, 0xFFFFFFFFu}) {
        Stream stream;
        stream.Feed(kSync + Header("TEST", length));
        EXPECT_EQ(stream.Events(), "S I" + std::to_string(length) + " ");
        EXPECT_FALSE(stream.stream.synced());
        stream.Feed(Wire("LOGN", 192) + kSync + Wire("LOGN", 192));
        EXPECT_EQ(stream.events.size(), 4u) << "bytes before the next SYNC are skipped";
    }
}

TEST(SerialStreamTest, SyncThatBeginsWithinAnInvalidHeaderIsFound) {
    Stream stream;
    stream.Feed(kSync + Bytes{1, 2, 3} + kSync + Wire("PING", 8));
    ASSERT_EQ(stream.events.size(), 4u);
    EXPECT_EQ(stream.events[0], "S");
    EXPECT_EQ(stream.events[1][0], 'I');
    EXPECT_EQ(stream.events[2], "S");
    EXPECT_EQ(stream.events[3], "P");
}

TEST(SerialStreamTest, NextSearchIgnoresTheOldSync) {
    Stream stream;
    stream.Feed(kSync + Bytes(8, 0) + Bytes(8, 0));
    EXPECT_EQ(stream.Events(), "S I0 ");
}

TEST(SerialStreamTest, SyncWithinTheStreamIsAPacketLikeAnyOther) {
    Stream stream;
    stream.Feed(kSync + kSync);
    EXPECT_EQ(stream.Events(), "S P ");
    EXPECT_EQ(stream.packets.front(), kSync);
}

TEST(SerialStreamTest, ReportsWhetherItIsWithinAPacket) {
    Stream stream;
    EXPECT_FALSE(stream.stream.in_packet());
    stream.Feed(kSync + Header("LOGN", 192));
    EXPECT_TRUE(stream.stream.in_packet());
    stream.Feed(Bytes(184));
    EXPECT_FALSE(stream.stream.in_packet());
    stream.Feed(Bytes(4));
    EXPECT_FALSE(stream.stream.in_packet());
}

TEST(SerialStreamTest, ResetForgetsAHalfReceivedPacketAndTheSync) {
    Stream stream;
    stream.Feed(kSync + Header("LOGN", 192) + Bytes(100));
    stream.stream.Reset();
    EXPECT_FALSE(stream.stream.synced());
    stream.events.clear();
    stream.Feed(Bytes(84) + kSync + Wire("PING", 8));
    EXPECT_EQ(stream.Events(), "S P ");
}

TEST(SerialStreamTest, ResetForgetsAHalfReceivedSync) {
    Stream stream;
    stream.Feed(Bytes(kSync.begin(), kSync.begin() + 7));
    stream.stream.Reset();
    stream.Feed(Bytes{0});
    EXPECT_FALSE(stream.stream.synced());
}

}  // namespace
}  // namespace tarvik::test
