#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "link/packet_counters.h"
#include "unit/transport/serial_fixture.h"

namespace tarvik::test {
namespace {

class SerialTransmitTest : public SerialFixture {
protected:
    static bool Send(std::uint32_t type, std::uint32_t length) {
        PacketPtr packet = MakePacket(type, length);
        return EnqueueTransmitPacket(QueuesOf(kPort), packet);
    }
};

TEST_F(SerialTransmitTest, QueuedPacketsAreWrittenInOrderAndCounted) {
    LogCapture log;
    const PacketCounters before = ReadPacketCounters();
    const auto port = Connect(kPort);
    ASSERT_TRUE(Send(kTypeCreq, 40));
    ASSERT_TRUE(Send(kTypeTspr, 16));
    ASSERT_TRUE(Eventually([&] { return port->ReceivedCount(kTypeTspr) == 1; }));
    const std::vector<Bytes> received = port->Received();
    ASSERT_GE(received.size(), 3u);
    const Bytes& first = received[received.size() - 2];
    EXPECT_EQ(LoadU32(first.data()), kTypeCreq);
    EXPECT_EQ(first.size(), 40u);
    std::uint64_t bytes = 0;  // including the handshake
    for (const Bytes& packet : received)
        bytes += packet.size();
    EXPECT_TRUE(Eventually([&] {
        const PacketCounters now = ReadPacketCounters();
        return now.sent_packets == before.sent_packets + received.size() &&
               now.sent_bytes == before.sent_bytes + bytes;
    }));
    EXPECT_TRUE(log.Has("[WritePacketToSerial] Wrote packet with 40 byte"));
    EXPECT_TRUE(log.Has("[SerialTxThreadFunc] Sent 40 byte."));
    EXPECT_TRUE(log.Has("[SerialTxThreadFunc] Sent 16 byte."));
}

struct WriteFailure {
    TransferOutcome outcome;
    const char* message;
};
constexpr WriteFailure kWriteFailures[] = {
    {{TransferStep::kStart, 0, 21},
     "[WritePacketToSerial] Failed to write to serial port, error: 21"},
    {{TransferStep::kTimeout, 0, 0}, "[WritePacketToSerial] Wait timeout occurred"},
    {{TransferStep::kWait, 0, 1}, "[WritePacketToSerial] Wait error: 0x00000001"},
    {{TransferStep::kResult, 0, 995},
     "[WritePacketToSerial] Failed to get overlapped result, error: 995"},
    {{TransferStep::kDone, 7, 0}, "[WritePacketToSerial] Written: 7/40"},
};

TEST_F(SerialTransmitTest, FailedWriteClosesThePort) {
    for (const WriteFailure& failure : kWriteFailures) {
        SCOPED_TRACE(failure.message);
        LogCapture log;
        const PacketCounters before = ReadPacketCounters();
        const auto port = Connect(kPort);
        port->Inject([&](FakePort& self) { self.write_outcome = failure.outcome; });
        ASSERT_TRUE(Send(kTypeCreq, 40));
        EXPECT_TRUE(Closes(*port));
        UnplugPort(kPort);
        kSerialTransport.Stop();
        EXPECT_TRUE(log.Has(failure.message));
        EXPECT_TRUE(log.Has("[SerialTxThreadFunc] Failed to send. exiting."));
        EXPECT_TRUE(log.Has("[SerialTxThreadFunc] Exiting."));
        EXPECT_EQ(ReadPacketCounters().sent_packets, before.sent_packets + port->Received().size());
        FakePort::RemoveAll();
    }
}

TEST_F(SerialTransmitTest, WriteEndedByStopIsNotLoggedAsAFailure) {
    LogCapture log;
    const auto port = Connect(kPort);
    port->Inject([](FakePort& self) { self.hold_writes = true; });
    ASSERT_TRUE(Send(kTypeCreq, 40));
    ASSERT_TRUE(Eventually([&] { return port->HoldsAWrite(); }));
    kSerialTransport.Stop();
    EXPECT_FALSE(log.Mentions("Wait error"));
    EXPECT_FALSE(log.Mentions("Failed to send"));
    EXPECT_TRUE(log.Has("[SerialTxThreadFunc] Exiting."));
}

TEST_F(SerialTransmitTest, PortReconnectsAfterAFailedWrite) {
    const auto port = Connect(kPort);
    port->Inject([](FakePort& self) { self.write_outcome = {TransferStep::kStart, 0, 21}; });
    ASSERT_TRUE(Send(kTypeCreq, 40));
    ASSERT_TRUE(Eventually([] { return StateOf(kPort) != PortState::kConnected; }));
    // The next handshake fails too. Once writing works, a replug connects it.
    ASSERT_TRUE(Reaches(kPort, PortState::kFailed));
    port->Inject([](FakePort& self) { self.write_outcome.reset(); });
    UnplugPort(kPort);
    ASSERT_TRUE(Reaches(kPort, PortState::kUnused));
    Connect(kPort);
}

TEST_F(SerialTransmitTest, EventCreationFailureClosesThePort) {
    LogCapture log;
    const auto port = FakePort::Plug(kPort);
    port->transmit_event_error = 1450;
    kSerialTransport.Start();
    ASSERT_TRUE(Reaches(kPort, PortState::kFailed));
    EXPECT_TRUE(Closes(*port));
    EXPECT_TRUE(log.Has("[SerialTxThreadFunc] Failed to create overlapped event, error: 1450"));
}

TEST_F(SerialTransmitTest, UnsentPacketIsDroppedWithItsConnection) {
    const auto port = Connect(kPort);
    port->Inject([](FakePort& self) { self.write_outcome = {TransferStep::kTimeout, 0, 0}; });
    ASSERT_TRUE(Send(kTypeCreq, 40));
    ASSERT_TRUE(Closes(*port));
    UnplugPort(kPort);
    AwaitEndOfScan();  // which may be opening the port that it found before
    ASSERT_TRUE(Reaches(kPort, PortState::kUnused));
    const auto again = Connect(kPort);
    ASSERT_TRUE(Send(kTypeTspr, 16));
    ASSERT_TRUE(Eventually([&] { return again->ReceivedCount(kTypeTspr) == 1; }));
    EXPECT_EQ(again->ReceivedCount(kTypeCreq), 0u);
}

}  // namespace
}  // namespace tarvik::test
