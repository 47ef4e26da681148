#include "worker/multi_request.h"

#include "unit/worker/worker_link.h"

namespace tarvik::test {
namespace {

struct Row {
    std::uint32_t id, physical, response;
    bool operator==(const Row&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.id << ": " << std::hex << row.physical << "/" << row.response;
}
using Rows = std::vector<Row>;

class MultiRequest : public WorkerLink {
protected:
    void SetUp() override {
        WorkerLink::SetUp();
        SetNumber(kCpP2Max, 50'000);
        SetNumber(kCpCanFuncReqId, 0x7DF);
        SetNumber(kCpCanPhysReqId, 0x7E0);
        SetNumber(kCpCanRespUSDTId, 0x7E8);
    }
    // The rows answer in order; an empty answer is none.
    static void Answer(std::vector<Bytes> answers, bool exchanged = true) {
        multi_exchange = [answers, exchanged](const CommLink&, CommMultiRequest& request,
                                              const std::atomic<bool>*) {
            EXPECT_EQ(request.count, answers.size());
            for (std::size_t i = 0; i < answers.size(); ++i) {
                if (answers[i].empty()) continue;
                request.entries[i].rsp_data = TrackedCopy(answers[i]).release();
                request.entries[i].rsp_len = static_cast<std::uint32_t>(answers[i].size());
            }
            return exchanged;
        };
    }
    void Run(const TableOf& table, std::vector<Expected> expected = {{5, {0x62}}}) {
        const Ref<ComPrimitive> cop = MakeRequest(std::move(expected));
        RunMultiRequest(link.Get(), cop.Get(), table.Item());
    }
    Rows RowsFor(const TableOf& table) {
        Rows rows;
        multi_exchange = [&](const CommLink&, CommMultiRequest& request, const std::atomic<bool>*) {
            for (std::uint32_t i = 0; i < request.count; ++i) {
                const CommMultiEntry& entry = request.entries[i];
                EXPECT_EQ(entry.rsp_data, nullptr);
                EXPECT_EQ(entry.rsp_len, 0u);
                rows.push_back({entry.id, entry.addr_a, entry.addr_b});
            }
            return false;
        };
        Run(table);
        return rows;
    }
    static TableOf TwoResponders() {
        return TableOf({{{kCpCanPhysReqId, 0x7E0}, {kCpCanRespUSDTId, 0x7E8}},
                        {{kCpCanPhysReqId, 0x7E1}, {kCpCanRespUSDTId, 0x7E9}}});
    }
};

TEST_F(MultiRequest, HandsItsDataIdentifiersAndTimeToTheExchange) {
    const Ref<ComPrimitive> cop = MakeRequest();
    std::size_t calls = 0;
    multi_exchange = [&](const CommLink& used, CommMultiRequest& request,
                         const std::atomic<bool>* abort) {
        ++calls;
        EXPECT_EQ(used.queues, &dongle);
        EXPECT_EQ(used.running, &link->may_exchange);
        EXPECT_EQ(abort, &cop->abort);
        EXPECT_EQ(request.req_id, kCop);
        EXPECT_EQ(request.can_id_tx_func, 0x7DFu);
        EXPECT_EQ(Hex(request.data, request.data_len), "22F190");
        EXPECT_EQ(request.timeout_ms, 25u);
        return false;
    };
    RunMultiRequest(link.Get(), cop.Get(), TwoResponders().Item());
    EXPECT_EQ(calls, 1u);
}

TEST_F(MultiRequest, RowsHaveThePositionAndTheIdentifiersOfTheirEntries) {
    EXPECT_EQ(RowsFor(TwoResponders()), (Rows{{0, 0x7E0, 0x7E8}, {1, 0x7E1, 0x7E9}}));
}

TEST_F(MultiRequest, EntryInheritsWhatItDoesNotHaveFromTheOneBefore) {
    EXPECT_EQ(RowsFor(TableOf({{{kCpCanRespUSDTId, 0x701}},
                               {{kCpCanPhysReqId, 0x710}, {kCpCanRespUSDTId, 0x702}},
                               {{kCpCanRespUSDTId, 0x703}}})),
              (Rows{{0, 0x7E0, 0x701}, {1, 0x710, 0x702}, {2, 0x710, 0x703}}));
}

TEST_F(MultiRequest, FirstEntryInheritsTheGlobalIdentifiers) {
    EXPECT_EQ(RowsFor(TableOf({{}, {{kCpCanRespUSDTId, 0x700}}})),
              (Rows{{0, 0x7E0, 0x7E8}, {1, 0x7E0, 0x700}}));
}

TEST_F(MultiRequest, RepeatedResponseIdentifierIsAskedOnce) {
    const LogCapture log;
    EXPECT_EQ(RowsFor(TableOf({{{kCpCanPhysReqId, 0x700}, {kCpCanRespUSDTId, 0x708}},
                               {{kCpCanPhysReqId, 0x701}, {kCpCanRespUSDTId, 0x709}},
                               {{kCpCanPhysReqId, 0x702}, {kCpCanRespUSDTId, 0x708}},
                               {{kCpCanPhysReqId, 0x700}, {kCpCanRespUSDTId, 0x70A}}})),
              (Rows{{0, 0x700, 0x708}, {1, 0x701, 0x709}, {3, 0x700, 0x70A}}));
    EXPECT_TRUE(
        HasThreadLine(log, "    prepare multi-request packet with 4 entries in UniqueRespTable"));
    EXPECT_TRUE(HasThreadLine(log, "    send multi-request packet with 3 entries"));
}

TEST_F(MultiRequest, EveryMatchedAnswerIsDeliveredUnderItsRow) {
    Answer({{0x62, 1}, {0x62, 2}});
    Run(TwoResponders());
    EXPECT_EQ(Events(), (Texts{"result 0/5 6201 rx 00000000 sent then",
                               "result 1/5 6202 rx 00000000 sent then"}));
}

TEST_F(MultiRequest, ResultNamesTheRowAndNotThePositionOfItsEntry) {
    Answer({{0x62}, {0x62}});
    const LogCapture log;
    Run(TableOf({{}, {}, {{kCpCanRespUSDTId, 0x700}}}));  // the second is left out
    EXPECT_EQ(Events(), (Texts{"result 0/5 62 rx 00000000 sent then",
                               "result 1/5 62 rx 00000000 sent then"}));
    EXPECT_TRUE(HasThreadLine(log, "    done, parse 2 responses"));
    EXPECT_FALSE(HasThreadLine(log, "      #2 -> no data"));
}

TEST_F(MultiRequest, LogsWhatBecomesOfEveryRow) {
    Answer({{}, {0x7F, 0x22}, {0x62}});
    const LogCapture log;
    Run(TableOf({{}, {{kCpCanRespUSDTId, 0x701}}, {{kCpCanRespUSDTId, 0x702}}}),
        {{4, {0x50}}, {5, {0x62}}});
    EXPECT_EQ(Events(), Texts{"result 2/5 62 rx 00000000 sent then"});
    EXPECT_EQ(ThreadLines(log),
              (Texts{"    prepare multi-request packet with 3 entries in UniqueRespTable",
                     "    send multi-request packet with 3 entries", "    done, parse 3 responses",
                     "      #0 -> no data", "      #1 -> received 2 bytes",
                     "          Check against pExpectedResponseArray[#0] ",
                     "          Check against pExpectedResponseArray[#1] ", "        -> No match",
                     "      #2 -> received 1 bytes",
                     "          Check against pExpectedResponseArray[#0] ",
                     "          Check against pExpectedResponseArray[#1] ",
                     "            -> this is a match!",
                     "        -> Reporting back matched response for table entry 2"}));
}

TEST_F(MultiRequest, AnswerOfLengthZeroIsNoData) {
    multi_exchange = [](const CommLink&, CommMultiRequest& request, const std::atomic<bool>*) {
        request.entries[0].rsp_data = TrackedCopy({}).release();
        request.entries[1].rsp_len = 4;  // of nothing
        return true;
    };
    const MemoryUse before = LiveMemory();
    const LogCapture log;
    Run(TwoResponders(), {{5, {}}});
    EXPECT_EQ(Events(), Texts{});
    EXPECT_TRUE(HasThreadLine(log, "      #0 -> no data"));
    EXPECT_TRUE(HasThreadLine(log, "      #1 -> no data"));
    EXPECT_TRUE(LiveMemory() == before);
}

TEST_F(MultiRequest, UnmatchedAnswersAreReleasedAndReportNothing) {
    Answer({{0x7F}, {0x7F}});
    const MemoryUse before = LiveMemory();
    Run(TwoResponders());
    EXPECT_EQ(Events(), Texts{});
    EXPECT_TRUE(LiveMemory() == before);
}

TEST_F(MultiRequest, FailedExchangeIsReportedAsNoMatch) {
    Answer({{0x62}, {}}, false);
    const MemoryUse before = LiveMemory();
    const LogCapture log;
    Run(TwoResponders());
    EXPECT_EQ(Events(), Texts{"error 259"});
    EXPECT_EQ(ThreadLines(log).back(), "   Request timed out - is the OBD interface connected?");
    EXPECT_TRUE(LiveMemory() == before);
}

TEST_F(MultiRequest, WithoutMemoryNothingIsSent) {
    bool sent = false;
    multi_exchange = [&](const CommLink&, CommMultiRequest&, const std::atomic<bool>*) {
        return sent = true;
    };
    std::size_t callbacks = 0;
    on_event = [&] { ++callbacks; };
    const Ref<ComPrimitive> cop = MakeRequest();
    const TableOf table = TwoResponders();
    const LogCapture log;
    {
        const FailingHeap heap(0, 1);
        RunMultiRequest(link.Get(), cop.Get(), table.Item());
    }
    EXPECT_FALSE(sent);
    EXPECT_EQ(callbacks, 1u);
    EXPECT_EQ(Events(), Texts{"error 257"});
    EXPECT_EQ(ThreadLines(log), Texts{"   Failed to allocate response collection"});
}

}  // namespace
}  // namespace tarvik::test
