// Every way in which a host can break the protocol is detected.

#include <gtest/gtest.h>

#include <functional>

#include "host.h"
#include "protocol/fragments.h"
#include "protocol/packet_check.h"
#include "protocol/request.h"
#include "protocol/stream_cutter.h"

namespace brennix::test {
namespace {

Bytes Changed(Bytes packet, std::size_t offset, std::uint8_t value) {
    packet[offset] = value;
    return packet;
}

// A packet with a matching length field.
Bytes Resized(Bytes packet, std::size_t size) {
    packet.resize(size);
    packet[4] = static_cast<std::uint8_t>(size & 0xFF);
    packet[5] = static_cast<std::uint8_t>(size >> 8);
    return packet;
}

Bytes RawFrame(std::uint16_t count, std::uint16_t flags, std::uint8_t last) {
    Bytes payload;
    AppendU32(&payload, 0x123);
    AppendU16(&payload, count);
    AppendU16(&payload, flags);
    payload.insert(payload.end(), 7, 0);
    payload.push_back(last);
    return MakePacket(type::kRawc, payload);
}

Bytes RawSwitch(std::uint8_t flags) {
    Bytes payload(16, 0);
    payload[6] = flags;
    return MakePacket(type::kRawc, payload);
}

Bytes TesterPresent(std::uint32_t period, std::uint32_t mark, std::size_t size) {
    Bytes payload;
    AppendU32(&payload, period);
    AppendU32(&payload, mark);
    payload.insert(payload.end(), size, 0x3E);
    return MakePacket(type::kTspr, payload);
}

struct Case {
    const char* name;
    Bytes packet;
    const char* expected;  // empty: nothing is wrong
};

TEST(CheckPacket, FindsWhatIsWrong) {
    const Bytes single = SingleRequest(1, kReadVin);
    const Bytes multi = MultiRequest(1, {1, 2, 3, 4, 5}, {{1, 2}, {3, 4}, {5, 6}});
    ASSERT_EQ(multi.size(), 64u);
    const Case cases[] = {
        {"sync", Sync(), ""},
        {"long sync", Resized(Sync(), 9), "SYNC of 9 bytes, 8 expected"},
        {"identify", Identify(), ""},
        {"long identify", Resized(Identify(), 12), "IDEN of 12 bytes, 8 expected"},
        {"request", single, ""},
        {"empty request", SingleRequest(1, {}), ""},
        {"short request", Resized(single, 31), "CREQ of 31 bytes, at least 32 expected"},
        {"cut request", Resized(single, 34), "CREQ of 34 bytes, 35 expected"},
        {"long request", Resized(single, 36), "CREQ of 36 bytes, 35 expected"},
        {"transport", Changed(single, 26, 1), "CREQ transport is 1, not 0"},
        {"reserved", Changed(single, 27, 9), "CREQ reserved byte is 9, not 0"},
        {"no CAN id", Changed(single, 19, 0x20), "CREQ response id 0x200007E8 is no CAN id"},
        {"multi", multi, ""},
        {"no entries", MultiRequest(1, kReadVin, {}), "CREQ in multi form without entries"},
        {"many entries", Changed(multi, 16, 5), "CREQ in multi form with 5 entries in 64 bytes"},
        {"multi length", Resized(multi, 72), "CREQ of 72 bytes, 64 expected"},
        {"padding", Changed(multi, 63, 1), "CREQ padding is not zero"},
        {"raw frame", RawFrame(8, 0, 1), ""},
        {"raw on", RawSwitch(1), ""},
        {"raw off", RawSwitch(2), ""},
        {"raw flags", RawFrame(0, 3, 0), "RAWC flags are 3, not 0, 1 or 2"},
        {"raw count", RawFrame(9, 0, 0), "RAWC announces 9 data bytes, at most 8 fit"},
        {"raw rest", RawFrame(7, 0, 1), "RAWC unused data bytes are not zero"},
        {"raw switch with id", RawFrame(0, 2, 0), "RAWC switches reception and carries a frame"},
        {"raw length", Resized(RawFrame(0, 0, 0), 23), "RAWC of 23 bytes, 24 expected"},
        {"tester present", TesterPresent(2000, 0x700, 2), ""},
        {"tester present off", TesterPresent(0, 0x700, 0), ""},
        {"mark", TesterPresent(0, 0x7DF, 0), "TSPR value at offset 12 is 0x7DF, not 0x700"},
        {"long message", TesterPresent(1, 0x700, 33),
         "TSPR message of 33 bytes, at most 32 expected"},
        {"no message", TesterPresent(1, 0x700, 0), "TSPR period without a message"},
        {"relay", MakePacket(type::kAddr, Bytes(8, 0)), "ADDR does not belong on a serial port"},
        {"dongle's own", MakePacket(type::kCres, Bytes(12, 0)),
         "CRES is sent by the dongle, never to it"},
        {"unknown", MakePacket(TypeCode("WHAT"), {}), "unknown packet type WHAT"},
        {"unprintable", MakePacket(0x01020304, {}), "unknown packet type 0x01020304"},
    };
    for (const Case& row : cases)
        EXPECT_EQ(CheckPacket(row.packet), row.expected) << row.name;
}

struct StreamLog : StreamCutter::Sink {
    void OnPacket(ByteSpan packet) override { text += TypeName(PacketType(packet)) + " "; }
    void OnNoise(ByteSpan bytes) override { text += "noise" + std::to_string(bytes.size()) + " "; }
    void OnBadHeader(ByteSpan) override { text += "bad "; }
    std::string text;
};

TEST(StreamCutter, SkipsToSyncAtTheStartAndAfterABadHeader) {
    Bytes stream = {1, 2, 3};
    AppendBytes(&stream, Sync());
    AppendBytes(&stream, Identify());
    AppendBytes(&stream, Resized(Identify(), 4097));
    AppendBytes(&stream, Sync());
    StreamLog log;
    StreamCutter cutter;
    cutter.Feed(stream, &log);
    EXPECT_EQ(log.text, "noise3 SYNC IDEN bad noise4089 SYNC ");
}

TEST(StreamCutter, FindsPacketsAcrossPieces) {
    Bytes stream = {0x43, 0x4E};
    AppendBytes(&stream, Sync());
    AppendBytes(&stream, SingleRequest(1, kReadVin));
    StreamLog log;
    StreamCutter cutter;
    for (const std::uint8_t byte : stream)
        cutter.Feed(Bytes{byte}, &log);
    EXPECT_EQ(log.text, "noise1 noise1 SYNC CREQ ");
}

Bytes Fragment(std::uint16_t index, std::uint16_t count, std::uint32_t total, std::size_t size) {
    Bytes payload;
    AppendU16(&payload, index);
    AppendU16(&payload, count);
    AppendU32(&payload, total);
    Bytes slice(size, 0);
    if (index == 0 && size >= 8) slice = Resized(Sync(), total), slice.resize(size);
    AppendBytes(&payload, slice);
    return MakePacket(type::kFrag, payload);
}

TEST(Reassembler, FindsWhatIsWrong) {
    Reassembler reassembler;
    const auto feed = [&](const Bytes& packet) { return reassembler.Feed(packet).violation; };
    EXPECT_EQ(feed(Resized(Fragment(0, 1, 8, 8), 15)), "FRAG of 15 bytes, at least 16 expected");
    EXPECT_EQ(feed(Fragment(0, 0, 20, 10)), "FRAG with a count of 0");
    EXPECT_EQ(feed(Fragment(2, 2, 20, 10)), "FRAG index 2 of only 2");
    EXPECT_EQ(feed(Fragment(0, 2, 7, 5)), "FRAG total length 7 is impossible");
    EXPECT_EQ(feed(Fragment(0, 2, 20, 0)), "FRAG without payload");
    EXPECT_EQ(feed(Fragment(1, 3, 30, 10)), "FRAG index 1 out of order");
    EXPECT_EQ(feed(Fragment(0, 2, 20, 10)), "");
    EXPECT_EQ(feed(Fragment(1, 2, 20, 11)), "FRAG payloads exceed the total length 20");
    EXPECT_EQ(feed(Fragment(0, 2, 20, 10)), "");
    EXPECT_EQ(feed(Fragment(1, 2, 20, 9)), "FRAG payloads make 19 of 20 bytes");
    EXPECT_EQ(feed(Fragment(0, 3, 30, 12)), "");
    EXPECT_EQ(feed(Fragment(1, 3, 30, 9)), "FRAG payloads of one packet differ in size");
    EXPECT_EQ(reassembler.Unfinished(), 0u);
}

TEST(Reassembler, KeepsPacketsOfTheSameSizeApart) {
    Reassembler reassembler;
    EXPECT_TRUE(reassembler.Feed(Fragment(0, 2, 20, 10)).whole.empty());
    EXPECT_TRUE(reassembler.Feed(Fragment(0, 2, 20, 10)).whole.empty());
    EXPECT_EQ(reassembler.Feed(Fragment(1, 2, 20, 10)).whole.size(), 20u);
    EXPECT_EQ(reassembler.Feed(Fragment(1, 2, 20, 10)).whole.size(), 20u);
}

class Strictness : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(host_.Sync()); }
    // Sends and waits for the dongle's violation.
    std::string Complaint(const Bytes& bytes) {
        host_.Send(bytes);
        EXPECT_EQ(simulator_.Command("wait 1 10000 violation"), "ok 1");
        return simulator_.LastViolation();
    }
    RunningSimulator simulator_;
    HostPort host_{simulator_.PortPath()};
};

TEST_F(Strictness, BadHeaderIsReportedAndTheStreamResynchronised) {
    EXPECT_EQ(Complaint({'N', 'E', 'D', 'I', 7, 0, 0, 0}),
              "packet header with length 7: 4E45444907000000");
    EXPECT_TRUE(host_.Sync());
}

TEST_F(Strictness, ReplWithoutPingIsReported) {
    EXPECT_EQ(Complaint(MakePacket(type::kRepl, {})), "REPL without a PING");
}

TEST_F(Strictness, ReplWithAnotherPayloadIsReported) {
    simulator_.Command("ping 0A");
    EXPECT_EQ(Complaint(MakePacket(type::kRepl, Bytes{0x0B})), "REPL with payload 0B, PING had 0A");
}

TEST_F(Strictness, ReassembledRequestIsChecked) {
    const Bytes request = Changed(SingleRequest(1, kReadVin), 27, 1);
    Bytes payload;
    AppendU16(&payload, 0);
    AppendU16(&payload, 1);
    AppendU32(&payload, static_cast<std::uint32_t>(request.size()));
    AppendBytes(&payload, request);
    EXPECT_EQ(Complaint(MakePacket(type::kFrag, payload)), "CREQ reserved byte is 1, not 0");
}

TEST_F(Strictness, ViolationsCanBeCleared) {
    Complaint(MakePacket(TypeCode("WHAT"), {}));
    EXPECT_EQ(simulator_.Command("violations clear"), "ok 1 unknown packet type WHAT");
    EXPECT_EQ(simulator_.Command("violations"), "ok 0");
}

TEST_F(Strictness, BytesBeforeSyncAreReported) {
    host_.Close();
    HostPort again(simulator_.PortPath());
    again.Send(Bytes{1, 2, 3});
    again.Send(Sync());
    EXPECT_EQ(simulator_.Command("wait 1 10000 violation"), "ok 1");
    EXPECT_EQ(simulator_.LastViolation(), "3 bytes before SYNC: 010203");
}

}  // namespace
}  // namespace brennix::test
