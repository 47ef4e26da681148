#include "link/comm_request.h"

#include <functional>

#include "link_support.h"
#include "unit/faults/semaphore_fault.h"

namespace tarvik::test {
namespace {

const Bytes kReadVin = {0x22, 0xF1, 0x90};

// An exchange on its own thread.
class Exchange {
public:
    explicit Exchange(const std::function<bool()>& body)
        : thread_([this, body] {
              success_ = body();
              ended_ = true;
          }) {}

    bool Ended() const { return ended_; }
    bool Succeeds() {
        thread_.Join();
        return success_;
    }

private:
    bool success_ = false;
    std::atomic<bool> ended_{false};
    Thread thread_;
};

struct ExchangeTest : testing::Test {
    bool AnswerAwaited() {
        return Eventually([this] { return Sleepers(&dongle.rx) == 1; });
    }
    bool SentAndAnswerAwaited() { return NextSent(&dongle) != nullptr && AnswerAwaited(); }

    Dongle dongle;
    std::atomic<bool> running{true};
    CommLink link{&dongle, &running};
};

struct CommRequestTest : ExchangeTest {
    CommRequestData Request(std::uint32_t req_id, const Bytes& data = kReadVin) {
        return {.req_id = req_id,
                .data = data.data(),
                .data_len = static_cast<std::uint32_t>(data.size()),
                .can_id_tx = 0x7E0,
                .can_id_rx = 0x7E8,
                .timeout_ms = 25};
    }
    // Runs an exchange with this answer to its first sending.
    bool RunAnsweredBy(PacketPtr response) {
        Receive(&dongle, std::move(response));
        return CommRequest(&link, Request(9), &answer);
    }

    CommAnswer answer;
};

TEST_F(CommRequestTest, SendsTheSingleFormAndReturnsTheAnswer) {
    Exchange exchange([this] { return CommRequest(&link, Request(9), &answer); });
    const PacketPtr sent = NextSent(&dongle);
    EXPECT_EQ(BytesOf(sent), (Bytes{'Q',  'E',  'R', 'C', 35,   0, 0, 0,  //
                                    0xE0, 7,    0,   0,   0xE0, 7, 0, 0,  // the same id in both
                                    0xE8, 7,    0,   0,   0x0D, 2, 0, 0,  // 25 + 500 ms
                                    3,    0,    0,   0,   9,    0, 0, 0,  //
                                    0x22, 0xF1, 0x90}));
    Receive(&dongle, ResponseTo(9, {0x62, 0xF1, 0x90, 'W'}, 18));
    ASSERT_TRUE(exchange.Succeeds());
    EXPECT_EQ(answer.length, 4u);
    EXPECT_EQ(Bytes(answer.data.get(), answer.data.get() + 4), (Bytes{0x62, 0xF1, 0x90, 'W'}));
    EXPECT_EQ(answer.wait_time, 18u);
}

TEST_F(CommRequestTest, ExchangeFailsIfWaitingForItsSlotFails) {
    const SemaphoreFault fault;
    EXPECT_FALSE(CommRequest(&link, Request(9), &answer));
    CommMultiEntry entry{};
    CommMultiRequest multi{};
    multi.data = kReadVin.data();
    multi.data_len = static_cast<std::uint32_t>(kReadVin.size());
    multi.entries = &entry;
    multi.count = 1;
    EXPECT_FALSE(CommRequestMulti(&link, &multi, nullptr));
    EXPECT_EQ(TakePacket(&dongle.tx, 0), nullptr);
}

TEST_F(CommRequestTest, RequestWithoutBytesHasLength32) {
    CommRequestData request = Request(9);
    request.data_len = 0;
    Exchange exchange([&] { return CommRequest(&link, request, &answer); });
    EXPECT_EQ(NextSent(&dongle)->length, 32u);
    Receive(&dongle, ResponseTo(9));
    EXPECT_TRUE(exchange.Succeeds());
}

TEST_F(CommRequestTest, AnswerWithoutBytesSucceedsWithAnEmptyBuffer) {
    PacketPtr response = ResponseTo(9);
    EXPECT_EQ(response->length, 20u);
    ASSERT_TRUE(RunAnsweredBy(std::move(response)));
    EXPECT_EQ(answer.length, 0u);
    EXPECT_NE(answer.data, nullptr);
}

TEST_F(CommRequestTest, AnswerInMultiFormHasAsManyBytesAsItsLengthFieldSays) {
    ASSERT_TRUE(RunAnsweredBy(MultiResponseTo(9, {{7, {0x62, 1}}, {8, {0x62, 2}}})));
    EXPECT_EQ(Bytes(answer.data.get(), answer.data.get() + answer.length), (Bytes{7, 0}));
    EXPECT_EQ(answer.wait_time, kWaitTimeMulti);
}

TEST_F(CommRequestTest, UnwantedAnswerStillEndsTheExchange) {
    Receive(&dongle, ResponseTo(9, {1, 2, 3}));
    EXPECT_TRUE(CommRequest(&link, Request(9), nullptr));
}

TEST_F(CommRequestTest, SilentControlUnitIsASuccessWithItsWaitTime) {
    ASSERT_TRUE(RunAnsweredBy(ResponseTo(9, {}, kWaitTimeNoAnswer)));
    EXPECT_EQ(answer.wait_time, 0xFFFFFFFFu);
    EXPECT_EQ(answer.length, 0u);
}

TEST_F(CommRequestTest, AnnouncedLengthIsCutToWhatThePacketHolds) {
    PacketPtr response = ResponseTo(9, {0x62, 0xF1});
    response->SetU32(12, 0xFFFFFFF0);
    ASSERT_TRUE(RunAnsweredBy(std::move(response)));
    EXPECT_EQ(answer.length, 2u);
}

TEST_F(CommRequestTest, BytesAfterTheAnnouncedLengthAreIgnored) {
    PacketPtr response = ResponseTo(9, {0x62, 0xF1, 0x90});
    response->SetU32(12, 1);
    ASSERT_TRUE(RunAnsweredBy(std::move(response)));
    EXPECT_EQ(answer.length, 1u);
}

TEST_F(CommRequestTest, SilentDongleIsAskedThreeTimesTenSecondsApart) {
    FakeTick tick(1000);
    Exchange exchange([this] { return CommRequest(&link, Request(9), &answer); });
    const PacketPtr first = NextSent(&dongle);
    ASSERT_NE(first, nullptr);
    for (int resend = 0; resend < 2; ++resend) {
        ASSERT_TRUE(AnswerAwaited());
        tick.Advance(9999);
        EXPECT_EQ(Queued(&dongle.tx), 0u);
        tick.Advance(1);
        EXPECT_EQ(BytesOf(NextSent(&dongle)), BytesOf(first));
    }
    ASSERT_TRUE(AnswerAwaited());
    tick.Advance(10000);
    EXPECT_FALSE(exchange.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestTest, AnswerInTheLastMillisecondNeedsNoSecondAttempt) {
    FakeTick tick(1000);
    Exchange exchange([this] { return CommRequest(&link, Request(9), &answer); });
    ASSERT_TRUE(SentAndAnswerAwaited());
    tick.Advance(9999);
    Receive(&dongle, ResponseTo(9));
    EXPECT_TRUE(exchange.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestTest, AnswerToTheThirdAttemptIsASuccess) {
    FakeTick tick(1000);
    Exchange exchange([this] { return CommRequest(&link, Request(9), &answer); });
    for (int attempt = 0; attempt < 3; ++attempt) {
        ASSERT_TRUE(SentAndAnswerAwaited());
        if (attempt < 2) tick.Advance(10000);
    }
    Receive(&dongle, ResponseTo(9, {0x62}));
    EXPECT_TRUE(exchange.Succeeds());
    EXPECT_EQ(answer.length, 1u);
}

TEST_F(CommRequestTest, BusyIsWaitedOutAndStaysQueued) {
    const FakeTick tick(1000);
    Exchange exchange([this] { return CommRequest(&link, Request(9), &answer); });
    ASSERT_NE(NextSent(&dongle), nullptr);
    for (int i = 0; i < 5; ++i)
        Receive(&dongle, BusyFor(9, "not now"));
    Receive(&dongle, ResponseTo(9, {0x62}));
    EXPECT_TRUE(exchange.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
    EXPECT_EQ(Queued(&dongle.rx), 5u);
}

TEST_F(CommRequestTest, AnswerToAnotherRequestStaysQueued) {
    const FakeTick tick(1000);
    Receive(&dongle, ResponseTo(8, {0x7F}));
    ASSERT_TRUE(RunAnsweredBy(ResponseTo(9, {0x62})));
    EXPECT_EQ(answer.data.get()[0], 0x62);
    EXPECT_EQ(Queued(&dongle.rx), 1u);
}

TEST_F(CommRequestTest, MissingLinkQueuesOrDataFailWithoutSending) {
    CommRequestData no_data = Request(9);
    no_data.data = nullptr;
    const CommLink nowhere{nullptr, &running};
    EXPECT_FALSE(CommRequest(nullptr, Request(9), &answer));
    EXPECT_FALSE(CommRequest(&nowhere, Request(9), &answer));
    EXPECT_FALSE(CommRequest(&link, no_data, &answer));
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestTest, RequestLongerThanItsCountHoldsFailsWithoutSending) {
    EXPECT_FALSE(CommRequest(&link, Request(9, Bytes(65536)), &answer));
    EXPECT_EQ(Queued(&dongle.tx), 0u);

    dongle.mtu = 70000;
    const Bytes longest(65535);
    Exchange exchange([&] { return CommRequest(&link, Request(9, longest), &answer); });
    EXPECT_EQ(NextSent(&dongle)->U16(24), 65535);
    Receive(&dongle, ResponseTo(9));
    EXPECT_TRUE(exchange.Succeeds());
}

TEST_F(CommRequestTest, UnavailableDongleFailsAtOnceAndLeaksNoMemory) {
    const FakeTick tick(1000);
    const MemoryUse before = LiveMemory();
    dongle.available = false;
    EXPECT_FALSE(CommRequest(&link, Request(9), &answer));
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

TEST_F(CommRequestTest, NoticesItsLinkGoingAwayAndSendsNoMore) {
    const FakeTick tick(1000);
    Exchange exchange([this] { return CommRequest(&link, Request(9), &answer); });
    ASSERT_TRUE(SentAndAnswerAwaited());
    running = false;
    EXPECT_FALSE(exchange.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestTest, ManyExchangesLeakNoMemory) {
    const MemoryUse before = LiveMemory();
    std::atomic<bool> stop{false};
    Thread transport([&] {
        while (!stop) {
            const PacketPtr sent = TakePacket(&dongle.tx, 10);
            if (sent != nullptr) Receive(&dongle, ResponseTo(sent->U32(28), {0x62, 0xF1}));
        }
    });
    for (std::uint32_t i = 0; i < 2000; ++i) {
        CommAnswer one;
        EXPECT_TRUE(CommRequest(&link, Request(i), &one));
    }
    stop = true;
    transport.Join();
    EXPECT_EQ(Queued(&dongle.rx), 0u);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

TEST_F(CommRequestTest, IsShownInTheTraceOncePerSending) {
    TraceCapture trace;
    FakeTick tick(1000);
    Exchange exchange([this] { return CommRequest(&link, Request(9), &answer); });
    ASSERT_TRUE(SentAndAnswerAwaited());
    tick.Advance(10000);
    ASSERT_NE(NextSent(&dongle), nullptr);
    Receive(&dongle, ResponseTo(9));
    EXPECT_TRUE(exchange.Succeeds());
    trace.Stop();
    EXPECT_EQ(trace.Count("comm_req_sent"), 2u);
    EXPECT_TRUE(
        trace.Mentions("\"req_id\":9,\"tx_len\":3,\"tx_hex\":\"22f190\",\"tx_hex_len\":3,"
                       "\"tx_trunc\":false,\"can_id_tx_func\":2016,\"can_id_tx_phys\":2016,"
                       "\"can_id_rx\":2024,\"timeout\":525,\"transport\":0}"));
}

TEST_F(CommRequestTest, LongRequestGoesOutInFragments) {
    dongle.mtu = 244;
    const Bytes data(468);
    Exchange exchange([&] { return CommRequest(&link, Request(9, data), &answer); });
    for (std::uint16_t i = 0; i < 3; ++i) {
        const PacketPtr fragment = NextSent(&dongle);
        ASSERT_NE(fragment, nullptr);
        EXPECT_EQ(fragment->type, kTypeFrag);
        EXPECT_EQ(fragment->U16(8), i);
        EXPECT_EQ(fragment->U32(12), 500u);
    }
    Receive(&dongle, ResponseTo(9));
    EXPECT_TRUE(exchange.Succeeds());
}

struct CommRequestMultiTest : ExchangeTest {
    CommRequestMultiTest() {
        for (std::uint32_t i = 0; i < 3; ++i) {
            entries.push_back({.id = i,
                               .addr_a = 0x7E0 + i,
                               .addr_b = 0x7E8 + i,
                               .rsp_len = 0,
                               .rsp_data = nullptr});
        }
        request = {.req_id = 9,
                   .can_id_tx_func = 0x7DF,
                   .count = 3,
                   .entries = entries.data(),
                   .data = data.data(),
                   .data_len = static_cast<std::uint32_t>(data.size()),
                   .timeout_ms = 25};
    }
    ~CommRequestMultiTest() override {
        for (const CommMultiEntry& entry : entries)
            FreeMem(entry.rsp_data);
    }

    bool Run() { return CommRequestMulti(&link, &request, &abort); }
    // Runs the exchange with this answer to its first sending.
    bool RunAnsweredBy(PacketPtr response) {
        Receive(&dongle, std::move(response));
        return Run();
    }
    Bytes AnswerOf(std::size_t entry) const {
        return {entries[entry].rsp_data, entries[entry].rsp_data + entries[entry].rsp_len};
    }

    std::atomic<bool> abort{false};
    Bytes data = {0x22, 0xF1, 0x90, 0xF1, 0x91};
    std::vector<CommMultiEntry> entries;
    CommMultiRequest request{};
};

TEST_F(CommRequestMultiTest, ThreeEntriesAndFiveBytesMakeTheMultiFormOfLength64) {
    Exchange exchange([this] { return Run(); });
    const PacketPtr sent = NextSent(&dongle);
    EXPECT_EQ(BytesOf(sent), (Bytes{'Q',  'E',  'R',  'C',  64,   0,    0,    0,     //
                                    0xDF, 7,    0,    0,    0xEE, 0xEE, 0xFF, 0xFF,  //
                                    3,    0,    0,    0,    25,   0,    0,    0,     //
                                    5,    0,    0,    0,    9,    0,    0,    0,     //
                                    0xE0, 7,    0,    0,    0xE8, 7,    0,    0,     //
                                    0xE1, 7,    0,    0,    0xE9, 7,    0,    0,     //
                                    0xE2, 7,    0,    0,    0xEA, 7,    0,    0,     //
                                    0x22, 0xF1, 0x90, 0xF1, 0x91, 0,    0,    0}));
    Receive(&dongle, MultiResponseTo(9, {}));
    EXPECT_TRUE(exchange.Succeeds());
}

TEST_F(CommRequestMultiTest, RequestWithoutEntriesIsSent) {
    request.count = 0;
    request.entries = nullptr;
    EXPECT_TRUE(RunAnsweredBy(MultiResponseTo(9, {{0, {0x62}}})));
    EXPECT_EQ(NextSent(&dongle)->length, 40u);  // the five bytes, padded
}

TEST_F(CommRequestMultiTest, RequestWithoutBytesIsSent) {
    request.data = nullptr;
    request.data_len = 0;
    Exchange exchange([this] { return Run(); });
    const PacketPtr sent = NextSent(&dongle);
    EXPECT_EQ(sent->length, 32u + 8 * 3);
    EXPECT_EQ(sent->U32(24), 0u);
    Receive(&dongle, MultiResponseTo(9, {}));
    EXPECT_TRUE(exchange.Succeeds());
}

TEST_F(CommRequestMultiTest, AnswersGoToTheEntriesOfTheirId) {
    const LogCapture log;
    ASSERT_TRUE(
        RunAnsweredBy(MultiResponseTo(9, {{2, {0x62, 2}}, {0, {0x62, 0, 1, 2, 3, 4, 5, 6, 7}}})));
    EXPECT_EQ(AnswerOf(2), (Bytes{0x62, 2}));
    EXPECT_EQ(AnswerOf(0), (Bytes{0x62, 0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(entries[1].rsp_data, nullptr);
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                               "[WaitForPacket] Received: CRES",
                               "[CommRequestMulti]   Received multi packet with 2 entries",
                               "[CommRequestMulti]     response #0, ID: 2",
                               "[CommRequestMulti]       -> matches table entry 2",
                               "[CommRequestMulti]     response #1, ID: 0",
                               "[CommRequestMulti]       -> matches table entry 0",
                           }));
}

TEST_F(CommRequestMultiTest, EntryWithoutAnAnswerKeepsWhatItHad) {
    entries[1].rsp_len = 77;
    ASSERT_TRUE(RunAnsweredBy(MultiResponseTo(9, {{0, {0x62}}})));
    EXPECT_EQ(entries[1].rsp_len, 77u);
    EXPECT_EQ(entries[1].rsp_data, nullptr);
    entries[1].rsp_len = 0;
}

TEST_F(CommRequestMultiTest, UnknownIdIsLoggedAndSkipped) {
    const LogCapture log;
    ASSERT_TRUE(RunAnsweredBy(MultiResponseTo(9, {{3, {0x62}}, {1, {0x62, 1}}})));
    EXPECT_TRUE(log.Has("[CommRequestMulti] ERROR: response #0, ID: 3 doesn't match table"));
    EXPECT_EQ(AnswerOf(1), (Bytes{0x62, 1}));
}

TEST_F(CommRequestMultiTest, FirstOfTwoEntriesWithOneIdGetsTheAnswer) {
    entries[1].id = 2;
    ASSERT_TRUE(RunAnsweredBy(MultiResponseTo(9, {{2, {0x62}}})));
    EXPECT_EQ(entries[1].rsp_len, 1u);
    EXPECT_EQ(entries[2].rsp_len, 0u);
}

TEST_F(CommRequestMultiTest, LaterOfTwoAnswersOfOneResponderIsKept) {
    const MemoryUse before = LiveMemory();
    ASSERT_TRUE(RunAnsweredBy(MultiResponseTo(9, {{1, {0x7F, 0x22, 0x78}}, {1, {0x62}}})));
    EXPECT_EQ(AnswerOf(1), (Bytes{0x62}));
    FreeMem(std::exchange(entries[1].rsp_data, nullptr));
    while (TakePacket(&dongle.tx, 0) != nullptr) {
    }
    FreeQueue(&dongle.rx);
    FreeQueue(&dongle.tx);
    EXPECT_LE(LiveMemory().blocks, before.blocks);
}

TEST_F(CommRequestMultiTest, AnswerWithoutBytesIsAnEmptyBuffer) {
    ASSERT_TRUE(RunAnsweredBy(MultiResponseTo(9, {{1, {}}})));
    EXPECT_EQ(entries[1].rsp_len, 0u);
    EXPECT_NE(entries[1].rsp_data, nullptr);
}

TEST_F(CommRequestMultiTest, CountsAndLengthsAreCutToWhatThePacketHolds) {
    const LogCapture log;
    PacketPtr response = MultiResponseTo(9, {{0, {0x62}}, {1, {0x62, 1}}});
    response->SetU32(12, 0xFFFFFFFF);           // entries
    response->SetU32(20 + 16 + 4, 0xFFFFFFFF);  // bytes of the last
    ASSERT_TRUE(RunAnsweredBy(std::move(response)));
    EXPECT_TRUE(log.Has("[CommRequestMulti]   Received multi packet with 2 entries"));
    EXPECT_EQ(AnswerOf(0), (Bytes{0x62}));
    EXPECT_EQ(AnswerOf(1), (Bytes{0x62, 1, 0, 0, 0, 0, 0, 0}));
}

TEST_F(CommRequestMultiTest, LastEntryMayComeWithoutItsPadding) {
    const PacketPtr padded = MultiResponseTo(9, {{0, {0x62, 1, 2}}});
    PacketPtr bare = MakePacket(kTypeCres, padded->length - 5);
    std::memcpy(bare->Bytes() + 8, padded->Bytes() + 8, bare->length - 8);
    ASSERT_TRUE(RunAnsweredBy(std::move(bare)));
    EXPECT_EQ(AnswerOf(0), (Bytes{0x62, 1, 2}));
}

TEST_F(CommRequestMultiTest, EntryCutOffInItsHeaderDoesNotCount) {
    const PacketPtr whole = MultiResponseTo(9, {{0, {0x62}}, {1, {}}});
    PacketPtr cut = MakePacket(kTypeCres, whole->length - 1);
    std::memcpy(cut->Bytes() + 8, whole->Bytes() + 8, cut->length - 8);
    ASSERT_TRUE(RunAnsweredBy(std::move(cut)));
    EXPECT_EQ(AnswerOf(0), (Bytes{0x62}));
    EXPECT_EQ(entries[1].rsp_data, nullptr);
}

TEST_F(CommRequestMultiTest, AbortSetBeforeTheCallFailsWithoutSending) {
    abort = true;
    EXPECT_FALSE(Run());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestMultiTest, AbortEndsTheWaitWithoutTheTimeOutMessage) {
    const LogCapture log;
    StdoutCapture console;
    const FakeTick tick(1000);
    Exchange exchange([this] { return Run(); });
    ASSERT_TRUE(SentAndAnswerAwaited());
    abort = true;
    EXPECT_FALSE(exchange.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
    EXPECT_EQ(console.Text().find("No response packet"), std::string::npos);
    EXPECT_TRUE(log.Has("[CommRequestMulti]   Retry attempt 1"));
    EXPECT_FALSE(log.Mentions("Retry attempt 2"));
}

TEST_F(CommRequestMultiTest, NoticesItsLinkGoingAway) {
    const FakeTick tick(1000);
    Exchange exchange([this] { return Run(); });
    ASSERT_TRUE(SentAndAnswerAwaited());
    running = false;
    EXPECT_FALSE(exchange.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestMultiTest, SilentDongleIsAskedThreeTimes) {
    const LogCapture log;
    StdoutCapture console;
    FakeTick tick(1000);
    Exchange exchange([this] { return Run(); });
    const PacketPtr first = NextSent(&dongle);
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (attempt > 0) {
            EXPECT_EQ(BytesOf(NextSent(&dongle)), BytesOf(first));
        }
        ASSERT_TRUE(AnswerAwaited());
        tick.Advance(10000);
    }
    EXPECT_FALSE(exchange.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{
                               "[CommRequestMulti]   Retry attempt 1",
                               "[CommRequestMulti]   Retry attempt 2",
                               "[CommRequestMulti]   Retry attempt 3",
                           }));
    const std::string line =
        "[CommRequestMulti]   No response packet received within timeout (10000 ms)\n";
    EXPECT_EQ(console.Text(), line + line + line);
}

TEST_F(CommRequestMultiTest, AnswerInSingleFormIsAFailedAttempt) {
    const LogCapture log;
    const FakeTick tick(1000);
    const MemoryUse before = LiveMemory();
    Exchange exchange([this] { return Run(); });
    for (int attempt = 0; attempt < 3; ++attempt) {
        ASSERT_NE(NextSent(&dongle), nullptr);
        Receive(&dongle, ResponseTo(9, {0x62}, attempt == 0 ? kWaitTimeNoAnswer : 30));
    }
    EXPECT_FALSE(exchange.Succeeds());
    EXPECT_EQ(log.Count("[CommRequestMulti]   Received a non-multi packet"), 3u);
    EXPECT_EQ(log.Count("[CommRequestMulti]   Retry attempt 3"), 1u);
    FreeQueue(&dongle.rx);
    FreeQueue(&dongle.tx);
    EXPECT_LE(LiveMemory().blocks, before.blocks);
}

TEST_F(CommRequestMultiTest, FailedSendIsCountedWithoutTheRetryMessage) {
    const LogCapture log;
    StdoutCapture console;
    const MemoryUse before = LiveMemory();
    dongle.available = false;
    EXPECT_FALSE(Run());
    EXPECT_EQ(log.Count("[CommRequestMulti]   Received a non-multi packet"), 3u);
    EXPECT_FALSE(log.Mentions("Retry attempt"));
    const std::string line = "[CommRequestMulti] FragSendPacket failed to send COMM_REQ\n";
    EXPECT_EQ(console.Text(), line + line + line);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
}

TEST_F(CommRequestMultiTest, RequestLongerThanItsCountHoldsFailsWithoutSending) {
    data.resize(65536);
    request.data = data.data();
    request.data_len = 65536;
    EXPECT_FALSE(Run());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestMultiTest, MoreEntriesThanAPacketsLengthCountsFailWithoutSending) {
    for (const std::uint32_t count : {0x20000000u, UINT32_MAX}) {
        request.count = count;
        EXPECT_FALSE(Run());
    }
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestMultiTest, MissingArgumentsFailWithoutSending) {
    EXPECT_FALSE(CommRequestMulti(nullptr, &request, nullptr));
    EXPECT_FALSE(CommRequestMulti(&link, nullptr, nullptr));
    request.data = nullptr;
    request.data_len = 1;
    EXPECT_FALSE(Run());
    request.data = data.data();
    request.entries = nullptr;
    request.count = 1;
    EXPECT_FALSE(Run());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(CommRequestMultiTest, IsShownInTheTraceWithTheFieldsOfThePacket) {
    TraceCapture trace;
    ASSERT_TRUE(RunAnsweredBy(MultiResponseTo(9, {})));
    trace.Stop();
    EXPECT_TRUE(
        trace.Mentions("\"ev\":\"comm_req_sent\",\"req_id\":9,\"tx_len\":5,\"tx_hex\":"
                       "\"22f190f191\",\"tx_hex_len\":5,\"tx_trunc\":false,"
                       "\"can_id_tx_func\":2015,\"can_id_tx_phys\":4294962926,\"can_id_rx\":3,"
                       "\"timeout\":25,\"transport\":0}"));
}

// Ten exchanges wait for their answers, so that the library-wide limit is reached.
struct ExchangeLimit : CommRequestTest {
    ExchangeLimit() {
        for (std::uint32_t id = 0; id < 10; ++id)
            Start(id);
        for (int i = 0; i < 10; ++i)
            EXPECT_NE(NextSent(&dongle), nullptr);
    }
    ~ExchangeLimit() override { running = false; }

    Exchange& Start(std::uint32_t id) {
        exchanges.push_back(std::make_unique<Exchange>(
            [this, id] { return CommRequest(&link, Request(id), nullptr); }));
        return *exchanges.back();
    }

    std::vector<std::unique_ptr<Exchange>> exchanges;
};

TEST_F(ExchangeLimit, EleventhExchangeBlocksUntilOneOfTheFirstTenReturns) {
    Start(10);
    EXPECT_EQ(TakePacket(&dongle.tx, 50), nullptr);
    Receive(&dongle, ResponseTo(3));
    EXPECT_TRUE(exchanges[3]->Succeeds());
    const PacketPtr eleventh = NextSent(&dongle);
    ASSERT_NE(eleventh, nullptr);
    EXPECT_EQ(eleventh->U32(28), 10u);
    for (const std::uint32_t id : {0u, 1u, 2u, 4u, 5u, 6u, 7u, 8u, 9u, 10u}) {
        Receive(&dongle, ResponseTo(id));
        EXPECT_TRUE(exchanges[id]->Succeeds());
    }
}

TEST_F(ExchangeLimit, ExchangeThatWaitsForASlotNoticesItsLinkGoingAway) {
    std::atomic<bool> other_running{true};
    const CommLink other{&dongle, &other_running};
    Exchange waiting([&] { return CommRequest(&other, Request(10), nullptr); });
    other_running = false;
    EXPECT_FALSE(waiting.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(ExchangeLimit, ExchangeThatWaitsForASlotNoticesAbort) {
    CommMultiRequest request{};
    request.data = kReadVin.data();
    std::atomic<bool> abort{false};
    Exchange waiting([&] { return CommRequestMulti(&link, &request, &abort); });
    abort = true;
    EXPECT_FALSE(waiting.Succeeds());
    EXPECT_EQ(Queued(&dongle.tx), 0u);
}

TEST_F(ExchangeLimit, FailedExchangesReleaseTheirSlots) {
    running = false;
    for (const auto& exchange : exchanges)
        EXPECT_FALSE(exchange->Succeeds());
    running = true;
    Exchange& next = Start(10);
    ASSERT_NE(NextSent(&dongle), nullptr);
    Receive(&dongle, ResponseTo(10));
    EXPECT_TRUE(next.Succeeds());
}

TEST(CommRequestConcurrency, ExchangesOnOneDongleGetTheirOwnAnswers) {
    Dongle dongle;
    std::atomic<bool> stop{false};
    const Thread transport([&] {
        while (!stop) {
            const PacketPtr sent = TakePacket(&dongle.tx, 10);
            if (sent == nullptr) continue;
            // The answer repeats the request's bytes.
            Receive(&dongle, ResponseTo(sent->U32(28), {sent->Bytes()[32], sent->Bytes()[33]}));
        }
    });
    const CommLink link{&dongle, nullptr};
    std::atomic<std::uint32_t> right{0};
    {
        std::vector<std::unique_ptr<Thread>> workers;
        for (std::uint32_t worker = 0; worker < 16; ++worker) {
            workers.push_back(std::make_unique<Thread>([&, worker] {
                for (std::uint32_t i = 0; i < 100; ++i) {
                    const Bytes data = {static_cast<std::uint8_t>(worker),
                                        static_cast<std::uint8_t>(i)};
                    CommAnswer answer;
                    const bool done = CommRequest(&link,
                                                  {.req_id = worker * 1000 + i,
                                                   .data = data.data(),
                                                   .data_len = 2,
                                                   .can_id_tx = 0,
                                                   .can_id_rx = 0,
                                                   .timeout_ms = 0},
                                                  &answer);
                    const bool own = done && answer.length == 2 &&
                                     std::memcmp(answer.data.get(), data.data(), 2) == 0;
                    if (own) ++right;
                }
            }));
        }
    }
    stop = true;
    EXPECT_EQ(right, 1600u);
}

}  // namespace
}  // namespace tarvik::test
