#include "link_support.h"
#include "support/cop_trace.h"

namespace tarvik::test {
namespace {

std::string InvalidParameters(const char* function, const void* queues, const void* packet) {
    char text[160];
    FormatText(text, sizeof text, "[%s] Invalid parameters: queues=%p, packet=%p", function, queues,
               packet);
    return text;
}

TEST(TransmitQueue, TakesPacketsUntagged) {
    Dongle dongle;
    PacketPtr packet = MakePacket(kTypeIden, 8);
    EXPECT_TRUE(EnqueueTransmitPacket(&dongle, packet));
    EXPECT_EQ(packet, nullptr);
    EXPECT_NE(QueueRemoveByTag(&dongle.tx, kNoTag), nullptr);
}

TEST(TransmitQueue, InactiveQueueLeavesThePacketWithTheCaller) {
    DeviceQueues queues;
    PacketPtr packet = MakePacket(kTypeIden, 8);
    EXPECT_FALSE(EnqueueTransmitPacket(&queues, packet));
    EXPECT_NE(packet, nullptr);
}

TEST(TransmitQueue, MissingArgumentIsLogged) {
    const LogCapture log;
    Dongle dongle;
    DeviceQueues* const queues = &dongle;
    PacketPtr packet = MakePacket(kTypeIden, 8);
    PacketPtr none;
    EXPECT_FALSE(EnqueueTransmitPacket(nullptr, packet));
    EXPECT_FALSE(EnqueueTransmitPacket(&dongle, none));
    EXPECT_TRUE(log.Has(InvalidParameters("EnqueueTransmitPacket", nullptr, packet.get())));
    EXPECT_TRUE(log.Has(InvalidParameters("EnqueueTransmitPacket", queues, nullptr)));
}

TEST(ReceivedPacket, MissingArgumentIsLogged) {
    const LogCapture log;
    Dongle dongle;
    DeviceQueues* const queues = &dongle;
    PacketPtr packet = MakePacket(kTypePing, 8);
    PacketPtr none;
    EXPECT_FALSE(EnqueueReceivedPacket(nullptr, packet));
    EXPECT_FALSE(EnqueueReceivedPacket(&dongle, none));
    EXPECT_TRUE(log.Has(InvalidParameters("EnqueueReceivedPacket", nullptr, packet.get())));
    EXPECT_TRUE(log.Has(InvalidParameters("EnqueueReceivedPacket", queues, nullptr)));
}

TEST(ReceivedPacket, InactiveQueueLeavesItWithTheCaller) {
    DeviceQueues queues;
    PacketPtr packet = ResponseTo(5);
    EXPECT_FALSE(EnqueueReceivedPacket(&queues, packet));
    EXPECT_NE(packet, nullptr);
}

TEST(ReceivedPacket, ResponseIsTaggedWithItsRequest) {
    Dongle dongle;
    Receive(&dongle, ResponseTo(5, {0x62}));
    EXPECT_NE(QueueRemoveByTag(&dongle.rx, 5), nullptr);
}

TEST(ReceivedPacket, RawFrameIsTaggedWithItsCanId) {
    Dongle dongle;
    PacketPtr frame = MakePacket(kTypeRawc, 24);
    frame->SetU32(8, 0x18DA10F1);
    Receive(&dongle, std::move(frame));
    EXPECT_NE(QueueRemoveByTag(&dongle.rx, 0x18DA10F1), nullptr);
}

TEST(ReceivedPacket, BusyIsTaggedAndLoggedWithItsReason) {
    const LogCapture log;
    Dongle dongle;
    Receive(&dongle, BusyFor(5, "bus off"));
    EXPECT_TRUE(log.Has("[EnqueueReceivedPacket] BUSY (ID 5): bus off"));
    EXPECT_EQ(QueueRemoveByTag(&dongle.rx, 5)->type, kTypeBusy);
}

TEST(ReceivedPacket, BusyReasonEndsAtItsFirstNul) {
    const LogCapture log;
    Dongle dongle;
    Receive(&dongle, BusyFor(6, std::string("wait\0rubbish", 12)));
    EXPECT_TRUE(log.Has("[EnqueueReceivedPacket] BUSY (ID 6): wait"));
}

TEST(ReceivedPacket, BusyReasonCannotForgeALine) {
    Dongle dongle;
    const LogCapture log;
    const std::string forged =
        "off\n[2024-05-22 13:00:00] [PDUDestruct] \x1B[31mdone\x7F gr\xC3\xBCn";
    Receive(&dongle, BusyFor(5, forged));
    EXPECT_EQ(log.Lines(), std::vector<std::string>{
                               "[EnqueueReceivedPacket] BUSY (ID 5): off.[2024-05-22 13:00:00] "
                               "[PDUDestruct] .[31mdone. gr\xC3\xBCn"});
    EXPECT_EQ(BytesOf(QueueRemoveByTag(&dongle.rx, 5)), BytesOf(BusyFor(5, forged)));
}

TEST(ReceivedPacket, BusyOfTwelveBytesHasNoReason) {
    const LogCapture log;
    Dongle dongle;
    Receive(&dongle, BusyFor(7));
    Receive(&dongle, BusyFor(8, std::string("\0late", 5)));
    EXPECT_TRUE(log.Has("[EnqueueReceivedPacket] BUSY (ID 7)"));
    EXPECT_TRUE(log.Has("[EnqueueReceivedPacket] BUSY (ID 8)"));
    EXPECT_NE(QueueRemoveByTag(&dongle.rx, 7), nullptr);
    EXPECT_NE(QueueRemoveByTag(&dongle.rx, 8), nullptr);
}

TEST(ReceivedPacket, BusyOfElevenBytesIsTooShortAndQueuedUntagged) {
    const LogCapture log;
    Dongle dongle;
    Receive(&dongle, MakePacket(kTypeBusy, 11));
    EXPECT_TRUE(log.Has("[EnqueueReceivedPacket] BUSY packet too short: 11 bytes (need 12)"));
    EXPECT_EQ(QueueRemoveByTag(&dongle.rx, 0), nullptr);
    EXPECT_EQ(QueueRemoveByTag(&dongle.rx, kNoTag)->type, kTypeBusy);
}

TEST(ReceivedPacket, PacketTooShortForItsFixedFieldsIsQueuedUntagged) {
    Dongle dongle;
    Receive(&dongle, MakePacket(kTypeCres, 19));
    Receive(&dongle, MakePacket(kTypeRawc, 15));
    EXPECT_EQ(QueueRemoveByTag(&dongle.rx, 0), nullptr);
    EXPECT_EQ(QueueRemoveByTag(&dongle.rx, kNoTag)->type, kTypeCres);
    EXPECT_EQ(QueueRemoveByTag(&dongle.rx, kNoTag)->type, kTypeRawc);
}

TEST(ReceivedPacket, EveryOtherTypeIsQueuedUntagged) {
    Dongle dongle;
    for (const std::uint32_t type : {kTypeCreq, kTypeAddr, kTypeLogn, kTypeLog, TypeCode("WHAT")}) {
        Receive(&dongle, MakePacket(type, 40));
        const PacketPtr queued = QueueRemoveByTag(&dongle.rx, kNoTag);
        ASSERT_NE(queued, nullptr);
        EXPECT_EQ(queued->type, type);
    }
}

TEST(ReceivedPacket, TelemetryIsHandledAndReleasedWithoutBeingQueued) {
    const LogCapture log;
    Dongle dongle;
    const MemoryUse before = LiveMemory();
    PacketPtr packet = PacketWithText(kTypeTele, "{}");
    EXPECT_TRUE(EnqueueReceivedPacket(&dongle, packet));
    EXPECT_EQ(packet, nullptr);
    EXPECT_EQ(Queued(&dongle.rx), 0u);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_TRUE(log.Mentions("[TELE] v=-1"));
}

TEST(ReceivedPacket, TaggingIsBelowTheLogsThreshold) {
    Dongle dongle;
    const LogCapture log;
    Receive(&dongle, ResponseTo(5));
    Receive(&dongle, MakePacket(kTypeRawc, 24));
    Receive(&dongle, MakePacket(kTypePing, 8));
    EXPECT_EQ(log.Text(), "");
}

TEST(ReceivedPacketTrace, ShowsResponsesAndBusy) {
    TraceCapture trace;
    Dongle dongle;
    Receive(&dongle, ResponseTo(5, {0x62, 0xF1, 0x90}, 25));
    Receive(&dongle, BusyFor(6, "full"));
    Receive(&dongle, BusyFor(7));
    Receive(&dongle, MakePacket(kTypeBusy, 11));
    Receive(&dongle, MakePacket(kTypeCres, 19));
    trace.Stop();
    EXPECT_TRUE(
        trace.Mentions("\"ev\":\"comm_res_received\",\"req_id\":5,\"wait_time\":25,"
                       "\"rx_len\":3,\"rx_hex\":\"62f190\",\"rx_hex_len\":3,"));
    EXPECT_TRUE(trace.Mentions(
        "\"ev\":\"busy_received\",\"req_id\":6,\"reason\":\"full\",\"reason_len\":4}"));
    EXPECT_TRUE(
        trace.Mentions("\"ev\":\"busy_received\",\"req_id\":7,\"reason\":null,\"reason_len\":0}"));
    EXPECT_EQ(trace.Count("comm_res_received"), 1u);
    EXPECT_EQ(trace.Count("busy_received"), 2u);
}

TEST(ReceivedPacketTrace, CutsTheAnnouncedLengthToWhatThePacketHolds) {
    TraceCapture trace;
    Dongle dongle;
    PacketPtr response = ResponseTo(5, {0x62, 0xF1});
    response->SetU32(12, 0xFFFFFFFF);
    Receive(&dongle, std::move(response));
    trace.Stop();
    EXPECT_TRUE(trace.Mentions("\"rx_len\":2,\"rx_hex\":\"62f1\""));
}

TEST(ReceivedPacketTrace, ShowsAllEntriesOfTheMultiForm) {
    TraceCapture trace;
    Dongle dongle;
    Receive(&dongle, MultiResponseTo(9, {{0, {0x62}}}));
    trace.Stop();
    EXPECT_TRUE(
        trace.Mentions("\"req_id\":9,\"wait_time\":4294967293,\"rx_len\":16,"
                       "\"rx_hex\":\"00000000010000006200000000000000\""));
}

}  // namespace
}  // namespace tarvik::test
