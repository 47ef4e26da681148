#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "link/fragmentation.h"
#include "link/packet_counters.h"
#include "unit/transport/serial_fixture.h"
#include "unit/transport/serial_seal.h"

namespace tarvik::test {
namespace {

class SerialReceiveTest : public SerialFixture {
protected:
    void SetUp() override {
        SerialFixture::SetUp();
        FragInit();
    }
    static PacketPtr Receive(std::uint32_t type) { return SerialFixture::Receive(kPort, type); }
    static PacketPtr ResponseTo(std::uint32_t req_id) {
        return WaitForPacket(QueuesOf(kPort), kTypeCres, 10'000, req_id);
    }
    // Once it is answered, everything sent before has been processed.
    static bool PingIsAnswered(FakePort& port) {
        const std::size_t before = port.ReceivedCount(kTypeRepl);
        port.Send(WirePacket(kTypePing));
        return Eventually([&] { return port.ReceivedCount(kTypeRepl) == before + 1; });
    }
    // For a stream in which a PING cannot be answered.
    static bool IsWorkedThrough(FakePort& port) {
        return Eventually([&] { return port.IsDrained(); });
    }
    static bool Stops(const FakePort& port) { return Closes(port); }
};

Bytes BytesOf(const PacketPtr& packet) {
    if (packet == nullptr) return {};
    return Bytes(packet->Bytes(), packet->Bytes() + packet->length);
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes Response(std::uint32_t req_id, std::uint32_t data_length) {
    Bytes payload(12 + data_length);
    StoreU32(payload.data() + 4, data_length);
    StoreU32(payload.data() + 8, req_id);
    return WirePacket(kTypeCres, payload);
}

Bytes Fragment(std::uint16_t index, std::uint16_t count, std::uint32_t total, const Bytes& slice) {
    Bytes payload(8);
    StoreU16(payload.data(), index);
    StoreU16(payload.data() + 2, count);
    StoreU32(payload.data() + 4, total);
    return WirePacket(kTypeFrag, payload + slice);
}

TEST_F(SerialReceiveTest, PacketsArriveTaggedWithTheRequestTheyAnswer) {
    const auto port = Connect(kPort);
    const Bytes answer = Response(0x1234, 5);
    port->Send(answer);
    EXPECT_EQ(BytesOf(ResponseTo(0x1234)), answer);
}

TEST_F(SerialReceiveTest, PacketsThatArriveByteByByteAreUnchanged) {
    const auto port = Connect(kPort);
    port->Send(Response(1, 100) + Response(2, 3), 1);
    EXPECT_NE(ResponseTo(1), nullptr);
    EXPECT_NE(ResponseTo(2), nullptr);
}

TEST_F(SerialReceiveTest, LongestPacketFits) {
    const auto port = Connect(kPort);
    port->Send(Response(1, 4096 - 20));
    const PacketPtr packet = ResponseTo(1);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->length, 4096u);
}

TEST_F(SerialReceiveTest, GarbageBeforeTheFirstSyncIsSkipped) {
    const auto port = FakePort::Plug(kPort);
    port->on_packet = [](FakePort& self, const Bytes& packet) {
        if (LoadU32(packet.data()) == kTypeSync) self.Send(Bytes(5000, 0x43) + kSyncBytes, 3);
        if (LoadU32(packet.data()) == kTypeIden) self.Send(LoginPacket("after garbage"));
    };
    kSerialTransport.Start();
    EXPECT_TRUE(Reaches(kPort, PortState::kConnected));
}

TEST_F(SerialReceiveTest, ImpossibleLengthRestartsTheSearchWithoutClosingThePort) {
    LogCapture log;
    const auto port = Connect(kPort);
    Bytes oversized = WirePacket(kTypeCres, Bytes(4992));
    port->Send(oversized + kSyncBytes + Response(3, 0));
    EXPECT_NE(ResponseTo(3), nullptr);
    EXPECT_TRUE(log.Has("[SerialRxThreadFunc] Invalid header size 5000"));
    EXPECT_EQ(StateOf(kPort), PortState::kConnected);
    EXPECT_EQ(port->OpenCount(), 1u);

    port->Send(Bytes{'T', 'S', 'E', 'T', 7, 0, 0, 0} + kSyncBytes);
    EXPECT_TRUE(PingIsAnswered(*port));
    EXPECT_TRUE(log.Has("[SerialRxThreadFunc] Invalid header size 7"));
}

TEST_F(SerialReceiveTest, SyncHeaderEntersTheReceiveQueueUntagged) {
    LogCapture log;
    const auto port = Connect(kPort);
    port->Send(Bytes(8, 0xFF) + kSyncBytes);  // an impossible length, then a new SYNC
    const PacketPtr sync = Receive(kTypeSync);
    ASSERT_NE(sync, nullptr);
    EXPECT_EQ(BytesOf(sync), kSyncBytes);
    EXPECT_FALSE(log.Mentions("Enqueuing"));
}

TEST_F(SerialReceiveTest, PingIsAnsweredByRepl) {
    const auto port = Connect(kPort);
    const Bytes ping = WirePacket(kTypePing, {1, 2, 3, 4, 5});
    port->Send(ping);
    ASSERT_TRUE(Eventually([&] { return port->ReceivedCount(kTypeRepl) == 1; }));
    Bytes reply = WirePacket(kTypeRepl, {1, 2, 3, 4, 5});
    EXPECT_EQ(port->Received().back(), reply);
    EXPECT_EQ(TakePacket(&QueuesOf(kPort)->rx, 0), nullptr) << "a PING is not received";
}

TEST_F(SerialReceiveTest, LogPacketIsPrintedAndQueued) {
    StdoutCapture console;
    const auto port = Connect(kPort);
    port->Send(WirePacket(kTypeLog, {'a', 'b'}) + WirePacket(kTypeLog, {'c', '\n', 'd', '\n'}));
    EXPECT_NE(Receive(kTypeLog), nullptr);
    EXPECT_NE(Receive(kTypeLog), nullptr);
    kSerialTransport.Stop();
    EXPECT_NE(console.Text().find("[LOG] abc\n[LOG] d\n"), std::string::npos);
}

TEST_F(SerialReceiveTest, FragmentsArriveAsOnePacket) {
    const auto port = Connect(kPort);
    const Bytes whole = Response(77, 30);
    const auto slice = [&whole](std::ptrdiff_t from, std::ptrdiff_t to) {
        return Bytes(whole.begin() + from, whole.begin() + to);
    };
    port->Send(Fragment(0, 3, 50, slice(0, 20)));
    port->Send(Fragment(1, 3, 50, slice(20, 40)));
    EXPECT_TRUE(PingIsAnswered(*port));
    EXPECT_EQ(TakePacket(&QueuesOf(kPort)->rx, 0), nullptr);
    port->Send(Fragment(2, 3, 50, slice(40, 50)));
    EXPECT_EQ(BytesOf(ResponseTo(77)), whole);
}

TEST_F(SerialReceiveTest, PingInFragmentsIsAnsweredToo) {
    const auto port = Connect(kPort);
    const Bytes ping = WirePacket(kTypePing, {9, 8, 7, 6});
    port->Send(Fragment(0, 2, 12, Bytes(ping.begin(), ping.begin() + 6)) +
               Fragment(1, 2, 12, Bytes(ping.begin() + 6, ping.end())));
    EXPECT_TRUE(Eventually([&] { return port->ReceivedCount(kTypeRepl) == 1; }));
}

TEST_F(SerialReceiveTest, FragmentsFromBeforeAReplugAreForgotten) {
    const Bytes whole = Response(78, 30);
    const auto first = Connect(kPort);
    first->Send(Fragment(0, 2, 50, Bytes(25, 0xEE)));
    ASSERT_TRUE(PingIsAnswered(*first));
    UnplugPort(kPort);
    ASSERT_TRUE(Reaches(kPort, PortState::kUnused));

    const auto second = Connect(kPort);
    second->Send(Fragment(0, 2, 50, Bytes(whole.begin(), whole.begin() + 25)) +
                 Fragment(1, 2, 50, Bytes(whole.begin() + 25, whole.end())));
    EXPECT_EQ(BytesOf(ResponseTo(78)), whole);
}

TEST_F(SerialReceiveTest, ReceivedPacketsAndBytesAreCounted) {
    const auto port = Connect(kPort);
    ASSERT_TRUE(PingIsAnswered(*port));
    const PacketCounters before = ReadPacketCounters();
    port->Send(Response(1, 80) + Response(2, 0));
    ASSERT_NE(ResponseTo(2), nullptr);
    const PacketCounters after = ReadPacketCounters();
    EXPECT_EQ(after.received_packets, before.received_packets + 2);
    EXPECT_EQ(after.received_bytes, before.received_bytes + 120);
}

TEST_F(SerialReceiveTest, ArrivingPacketWakesTheReceiver) {
    const auto port = Connect(kPort);
    ASSERT_TRUE(PingIsAnswered(*port));
    const std::uint32_t waits = port->WaitCount();
    for (std::uint32_t i = 0; i < 50; ++i) {
        port->Send(Response(i, 0));
        ASSERT_NE(ResponseTo(i), nullptr);
    }
    // One wait for each packet, and some that timed out; a spinning receiver has thousands.
    EXPECT_LT(port->WaitCount() - waits, 500u);
}

// ---------------------------------------------------------------- sealed packets

// The library keeps one chaining value for the process, and so must the sealer.
SerialSealer& Sealer() {
    static SerialSealer sealer;
    return sealer;
}

Bytes Sealed(const Bytes& plain) { return WirePacket(kTypeCryp, Sealer().Encipher(plain)); }

TEST_F(SerialReceiveTest, SealedPacketIsReplacedByItsInnerPacket) {
    const auto port = Connect(kPort);
    const Bytes inner = Response(5, 12);  // 32 bytes: two blocks
    port->Send(Sealed(inner));
    EXPECT_EQ(BytesOf(ResponseTo(5)), inner);
}

TEST_F(SerialReceiveTest, SealingChainContinuesAcrossPacketsAndAReplug) {
    const auto first = Connect(kPort);
    first->Send(Sealed(Response(1, 12)));
    first->Send(Sealed(Response(2, 12)));
    EXPECT_NE(ResponseTo(1), nullptr);
    EXPECT_NE(ResponseTo(2), nullptr);
    UnplugPort(kPort);
    ASSERT_TRUE(Reaches(kPort, PortState::kUnused));
    const auto second = Connect(kPort);
    second->Send(Sealed(Response(3, 12)));
    EXPECT_NE(ResponseTo(3), nullptr);
}

TEST_F(SerialReceiveTest, SealedPacketWithPaddingKeepsItsOwnLength) {
    const auto port = Connect(kPort);
    const Bytes inner = Response(6, 3);  // 23 bytes in two blocks
    port->Send(Sealed(inner + Bytes(9)));
    EXPECT_EQ(BytesOf(ResponseTo(6)), inner);
}

TEST_F(SerialReceiveTest, BytesAfterTheLastSealedBlockAreTakenUnchanged) {
    const auto port = Connect(kPort);
    Bytes inner = Response(8, 15);  // 35 bytes: two blocks and three bytes
    std::fill(inner.begin() + 20, inner.end(), std::uint8_t{0xAB});
    port->Send(Sealed(inner));
    EXPECT_EQ(BytesOf(ResponseTo(8)), inner);
}

TEST_F(SerialReceiveTest, SealedPingIsAnswered) {
    const auto port = Connect(kPort);
    port->Send(Sealed(WirePacket(kTypePing, Bytes(8))));
    EXPECT_TRUE(Eventually([&] { return port->ReceivedCount(kTypeRepl) == 1; }));
}

// 32 sealed bytes in an outer packet of 40: the comparison is with 40.
TEST_F(SerialReceiveTest, InnerLengthUpToTheOuterLengthIsFilledWithZeros) {
    const auto port = Connect(kPort);
    Bytes inner = Response(4, 12);
    StoreU32(inner.data() + 4, 40);
    port->Send(Sealed(inner));
    EXPECT_EQ(BytesOf(ResponseTo(4)), inner + Bytes(8));
}

TEST_F(SerialReceiveTest, InnerLengthAboveTheOuterLengthClosesThePort) {
    StdoutCapture console;
    const auto port = Connect(kPort);
    Bytes inner = Response(4, 12);
    StoreU32(inner.data() + 4, 41);
    port->Send(Sealed(inner));
    EXPECT_TRUE(Stops(*port));
    ASSERT_TRUE(Eventually([&] { return port->OpenCount() == 2; }))
        << "the next scan opens it again";
    kSerialTransport.Stop();
    EXPECT_NE(console.Text().find("Decryption failed\n"), std::string::npos);
}

TEST_F(SerialReceiveTest, SealedPacketTooShortForAHeaderIsDropped) {
    StdoutCapture console;
    const auto port = Connect(kPort);
    for (const std::size_t size : {0u, 1u, 7u})
        port->Send(WirePacket(kTypeCryp, Bytes(size)));
    EXPECT_TRUE(PingIsAnswered(*port));
    EXPECT_EQ(TakePacket(&QueuesOf(kPort)->rx, 0), nullptr);
    EXPECT_EQ(port->OpenCount(), 1u);
    kSerialTransport.Stop();
    EXPECT_EQ(console.Text().find("Decryption failed"), std::string::npos);
}

TEST_F(SerialReceiveTest, InnerLengthBelowAHeaderIsDropped) {
    StdoutCapture console;
    const auto port = Connect(kPort);
    Bytes inner = Response(4, 12);
    StoreU32(inner.data() + 4, 7);
    port->Send(Sealed(inner));
    EXPECT_TRUE(PingIsAnswered(*port));
    EXPECT_EQ(TakePacket(&QueuesOf(kPort)->rx, 0), nullptr);
    EXPECT_EQ(port->OpenCount(), 1u);
    kSerialTransport.Stop();
    EXPECT_EQ(console.Text().find("Decryption failed"), std::string::npos);
}

// ---------------------------------------------------------------- failures

TEST_F(SerialReceiveTest, EventCreationFailureClosesThePort) {
    LogCapture log;
    const auto port = FakePort::Plug(kPort);
    port->receive_event_error = 1450;
    kSerialTransport.Start();
    ASSERT_TRUE(Reaches(kPort, PortState::kFailed));
    EXPECT_TRUE(Stops(*port));
    EXPECT_TRUE(log.Has("[SerialRxThreadFunc] Failed to create overlapped event, error: 1450"));
}

TEST_F(SerialReceiveTest, WaitFailureClosesThePort) {
    LogCapture log;
    const auto port = Connect(kPort);
    port->Inject([](FakePort& self) { self.comm_wait_error = 6; });
    EXPECT_TRUE(Stops(*port));
    EXPECT_TRUE(log.Has("[SerialRxThreadFunc] Failed to wait for comm event, error: 6"));
    EXPECT_TRUE(Eventually([] { return StateOf(kPort) != PortState::kConnected; }));
}

TEST_F(SerialReceiveTest, StatusReadFailureClosesThePort) {
    LogCapture log;
    const auto port = Connect(kPort);
    port->Break(21);
    EXPECT_TRUE(Stops(*port));
    EXPECT_TRUE(log.Has("[SerialRxThreadFunc] Failed to get serial port status, error: 21"));
}

// Connections with these bytes already received, each with a read that fails in another way.
class SerialReadFailure : public SerialReceiveTest {
protected:
    static void ExpectPortCloses(const Bytes& received, const std::string& last_line) {
        struct Row {
            TransferOutcome outcome;
            const char* message;
        };
        constexpr Row kRows[] = {
            {{TransferStep::kStart, 0, 22}, "Failed to read from serial port, error: 22"},
            {{TransferStep::kWait, 0, 0xFFFFFFFF}, "Wait error or timeout occurred"},
            {{TransferStep::kResult, 0, 109}, "Failed to get overlapped result, error: 109"},
        };
        for (const Row& row : kRows) {
            SCOPED_TRACE(row.message);
            LogCapture log;
            const auto port = Connect(kPort);
            port->Send(received);
            ASSERT_TRUE(IsWorkedThrough(*port));
            port->Inject([&](FakePort& self) { self.read_outcome = row.outcome; });
            port->Send({1});
            EXPECT_TRUE(Stops(*port));
            kSerialTransport.Stop();
            EXPECT_TRUE(log.Has(std::string("[ReadPacketFromSerial] ") + row.message));
            EXPECT_TRUE(log.Has(last_line));
            FakePort::RemoveAll();
        }
    }
};

TEST_F(SerialReadFailure, AtAPacketBoundaryClosesThePort) {
    ExpectPortCloses({}, "[SerialRxThreadFunc] Failed to read header");
}

TEST_F(SerialReadFailure, WithinAPacketClosesThePort) {
    Bytes half = Response(1, 100);
    half.resize(60);
    ExpectPortCloses(half, "[SerialRxThreadFunc] Failed ReadPacketFromSerial");
}

TEST_F(SerialReceiveTest, PortLostWithinAPacketLeaksNothing) {
    const std::uint64_t before = [] {
        Connect(kPort);
        kSerialTransport.Stop();
        FakePort::RemoveAll();
        return LiveMemory().blocks;
    }();
    const auto port = Connect(kPort);
    Bytes half = Response(1, 100);
    half.resize(60);
    port->Send(half);
    ASSERT_TRUE(IsWorkedThrough(*port));
    port->Break(21);
    UnplugPort(kPort);
    EXPECT_TRUE(Stops(*port));
    kSerialTransport.Stop();
    EXPECT_EQ(LiveMemory().blocks, before);
}

}  // namespace
}  // namespace tarvik::test
