#include "worker/single_request.h"

#include "unit/worker/worker_link.h"

namespace tarvik::test {
namespace {

class SingleRequest : public WorkerLink {
protected:
    void SetUp() override {
        WorkerLink::SetUp();
        SetNumber(kCpP2Max, 50'000);
        SetNumber(kCpCanFuncReqId, 0x7DF);
        SetNumber(kCpCanPhysReqId, 0x7E0);
        SetNumber(kCpCanRespUSDTId, 0x7E8);
    }
    // Every exchange gives the next of these answers; the last one again and again.
    void Answer(std::vector<Bytes> answers, std::uint32_t wait_time = 12) {
        exchange = [this, answers, wait_time](const CommLink&, const CommRequestData&,
                                              CommAnswer* answer) {
            const Bytes& bytes = answers[std::min<std::size_t>(exchanges, answers.size() - 1)];
            ++exchanges;
            if (bytes.empty()) return false;
            answer->data = TrackedCopy(bytes);
            answer->length = static_cast<std::uint32_t>(bytes.size());
            answer->wait_time = wait_time;
            return true;
        };
    }
    void Run(std::vector<Expected> expected, const TableOf& table = TableOf({{}})) {
        const Ref<ComPrimitive> cop = MakeRequest(std::move(expected));
        RunSingleRequest(link.Get(), cop.Get(), table.Item());
    }
    struct Ids {
        std::uint32_t physical, response;
        bool operator==(const Ids&) const = default;
    };
    Ids IdsUsedWith(const TableOf& table) {
        Ids ids{};
        exchange = [&](const CommLink&, const CommRequestData& request, CommAnswer*) {
            ids = {request.can_id_tx, request.can_id_rx};
            return false;
        };
        Run({}, table);
        return ids;
    }

    std::size_t exchanges = 0;
};

const Expected kPositive = {5, {0x62}};

TEST_F(SingleRequest, HandsItsDataIdentifiersAndTimeToTheExchange) {
    std::size_t calls = 0;
    exchange = [&](const CommLink& used, const CommRequestData& request, CommAnswer* answer) {
        ++calls;
        EXPECT_EQ(used.queues, &dongle);
        EXPECT_EQ(used.running, &link->may_exchange);
        EXPECT_EQ(request.req_id, kCop);
        EXPECT_EQ(Hex(request.data, request.data_len), "22F190");
        EXPECT_EQ(request.can_id_tx, 0x7E0u);
        EXPECT_EQ(request.can_id_rx, 0x7E8u);
        EXPECT_EQ(request.timeout_ms, 25u);
        EXPECT_EQ(answer->wait_time, 0xFFFFFFFEu);  // counts as an error unless it is replaced
        return false;
    };
    Run({kPositive});
    EXPECT_EQ(calls, 1u);
}

TEST_F(SingleRequest, TimeoutIsHalfOfP2MaxInWholeMilliseconds) {
    std::uint32_t timeout_ms = 0;
    exchange = [&](const CommLink&, const CommRequestData& request, CommAnswer*) {
        timeout_ms = request.timeout_ms;
        return false;
    };
    const auto used_for = [&](std::uint32_t p2_max_us) {
        SetNumber(kCpP2Max, p2_max_us);
        Run({});
        return timeout_ms;
    };
    EXPECT_EQ(used_for(0), 0u);
    EXPECT_EQ(used_for(1999), 0u);
    EXPECT_EQ(used_for(2000), 1u);
    EXPECT_EQ(used_for(0xFFFFFFFF), 2147483u);
}

TEST_F(SingleRequest, LogsAndPrintsRequestAndAnswer) {
    Answer({{0x62, 0xF1}});
    const LogCapture log;
    StdoutCapture console;
    Run({kPositive});
    EXPECT_EQ(ThreadLines(log, "[Transmit]"),
              (Texts{"   Tx 0x7DF/0x7E0, Rx 0x7E8, 25 ms, 22 F1 90 ", "   Rx (12 ms) 62 F1 "}));
    EXPECT_EQ(console.Text(),
              "[Transmit] > 0x7DF/0x7E0, Rx 0x7E8 (25 ms) 22 F1 90 \n"
              "[Transmit] < (12 ms) 62 F1 \n");
}

TEST_F(SingleRequest, OneEntryOverridesPhysicalAndResponseIdentifier) {
    EXPECT_EQ(IdsUsedWith(TableOf({{{kCpCanPhysReqId, 0x700}, {kCpCanRespUSDTId, 0x708}}})),
              (Ids{0x700, 0x708}));
    EXPECT_EQ(IdsUsedWith(TableOf({{{kCpCanPhysReqId, 0x700}}})), (Ids{0x700, 0x7E8}));
    EXPECT_EQ(IdsUsedWith(TableOf({{{kCpCanRespUSDTId, 0x708}}})), (Ids{0x7E0, 0x708}));
}

TEST_F(SingleRequest, EntryDoesNotOverrideTheFunctionalIdentifier) {
    const LogCapture log;
    IdsUsedWith(TableOf({{{kCpCanFuncReqId, 0x6FF}, {kCpCanPhysReqId, 0x700}}}));
    EXPECT_TRUE(HasThreadLine(log, "   Tx 0x7DF/0x700, Rx 0x7E8, 25 ms, 22 F1 90 ", "[Transmit]"));
}

TEST_F(SingleRequest, EmptyTableLeavesTheGlobalIdentifiers) {
    EXPECT_EQ(IdsUsedWith(TableOf({})), (Ids{0x7E0, 0x7E8}));
}

TEST_F(SingleRequest, MatchedAnswerIsDeliveredOnce) {
    Answer({{0x62, 0xF1, 0x90}});
    const LogCapture log;
    Run({kPositive});
    EXPECT_EQ(exchanges, 1u);
    EXPECT_EQ(Events(), Texts{"result 0/5 62F190 rx 00000000"});
    EXPECT_EQ(ThreadLines(log), (Texts{"    Response #0 ", "      this is a match!",
                                       "  Reporting back matched response"}));
}

TEST_F(SingleRequest, FirstExpectedResponseThatFitsGivesItsAcceptanceId) {
    Answer({{0x62}});
    const LogCapture log;
    Run({{7, {0x10}}, {8, {0x62}}, {9, {0x62}}});
    EXPECT_EQ(Events(), Texts{"result 0/8 62 rx 00000000"});
    EXPECT_EQ(ThreadLines(log),
              (Texts{"    Response #0 ", "      no match", "    Response #1 ",
                     "      this is a match!", "  Reporting back matched response"}));
}

TEST_F(SingleRequest, IsRepeatedTenTimesWhileNothingMatches) {
    Answer({{0x7F, 0x22, 0x31}});
    Run({kPositive});
    EXPECT_EQ(exchanges, 10u);
    EXPECT_EQ(Events(), Texts(10, "error 259"));
}

TEST_F(SingleRequest, EveryMismatchIsLoggedAndReportedBeforeTheMatch) {
    Answer({{0x7F}, {0x7F}, {0x62}});
    const LogCapture log;
    Run({kPositive});
    EXPECT_EQ(exchanges, 3u);
    EXPECT_EQ(Events(), (Texts{"error 259", "error 259", "result 0/5 62 rx 00000000"}));
    EXPECT_EQ(ThreadLines(log),
              (Texts{"    Response #0 ", "      no match", "  No match", "    Response #0 ",
                     "      no match", "  No match", "    Response #0 ", "      this is a match!",
                     "  Reporting back matched response"}));
}

TEST_F(SingleRequest, WithoutControlDataMatchesNothing) {
    Answer({{0x62}});
    const Ref<ComPrimitive> cop = MakeRequest();
    FreeControlData(std::exchange(cop->pCopCtrlData, nullptr));
    RunSingleRequest(link.Get(), cop.Get(), TableOf({}).Item());
    EXPECT_EQ(Events(), Texts(10, "error 259"));
}

TEST_F(SingleRequest, FailedExchangeEndsItAtOnce) {
    Answer({{}});
    const LogCapture log;
    StdoutCapture console;
    Run({kPositive});
    EXPECT_EQ(exchanges, 1u);
    EXPECT_EQ(Events(), Texts{"error 257"});
    EXPECT_TRUE(
        HasThreadLine(log, "   Request timed out - is the OBD interface connected?", "[Transmit]"));
    EXPECT_EQ(ThreadLines(log), Texts{"  Nothing received at all. Abort."});
    EXPECT_EQ(console.Text().find("[Transmit] <"), std::string::npos);
}

TEST_F(SingleRequest, FailedRepetitionEndsItWithBothErrors) {
    Answer({{0x7F}, {}});
    Run({kPositive});
    EXPECT_EQ(exchanges, 2u);
    EXPECT_EQ(Events(), (Texts{"error 259", "error 257"}));
}

TEST_F(SingleRequest, AnswerThatIsAnErrorEndsIt) {
    Answer({{0x62}}, 0xFFFFFFFE);
    const LogCapture log;
    StdoutCapture console;
    Run({kPositive});
    EXPECT_EQ(exchanges, 1u);
    EXPECT_EQ(Events(), Texts{"error 257"});
    EXPECT_EQ(ThreadLines(log, "[Transmit]").back(), "   Received an error");
    EXPECT_TRUE(console.Text().ends_with("\n[Transmit] < (4294967294 ms) ERROR\n"));
}

TEST_F(SingleRequest, AnswerThatIsATimeoutEndsIt) {
    Answer({{0x62}}, 0xFFFFFFFF);
    const LogCapture log;
    StdoutCapture console;
    Run({kPositive});
    EXPECT_EQ(exchanges, 1u);
    EXPECT_EQ(Events(), Texts{"error 257"});
    EXPECT_EQ(ThreadLines(log, "[Transmit]").back(), "   Received a timeout");
    EXPECT_TRUE(console.Text().ends_with("\n[Transmit] < TIMEOUT\n"));
}

TEST_F(SingleRequest, AnyOtherWaitTimeIsATime) {
    Answer({{0x62}}, 0xFFFFFFFD);
    const LogCapture log;
    Run({kPositive});
    EXPECT_EQ(Events().size(), 1u);
    EXPECT_TRUE(HasThreadLine(log, "   Rx (4294967293 ms) 62 ", "[Transmit]"));
}

TEST_F(SingleRequest, OnlyDoipLinksLogTheirAddresses) {
    link->doipLogicalAddress = 0x10;
    link->doipSourceAddress = 0xE00;
    link->doipTargetAddress = 0x1234;
    const auto logged_on = [&](ProtocolKind kind) {
        link->protocolKind = kind;
        const LogCapture log;
        Run({});
        return ThreadLines(log, "[Transmit]").front();
    };
    EXPECT_EQ(logged_on(ProtocolKind::kDoip),
              "   DoIP Protocol - LogicalAddr: 0x10, Source: 0xE00, Target: 0x1234");
    EXPECT_TRUE(logged_on(ProtocolKind::kCan).starts_with("   Tx "));
    EXPECT_TRUE(logged_on(ProtocolKind::kUnknown).starts_with("   Tx "));
}

TEST_F(SingleRequest, ReleasesAnswersThatItDoesNotDeliver) {
    Answer({{0x7F}, {0x62}});
    const MemoryUse before = LiveMemory();
    Run({kPositive});
    Events();
    EXPECT_TRUE(LiveMemory() == before);
}

}  // namespace
}  // namespace tarvik::test
