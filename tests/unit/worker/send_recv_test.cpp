#include "worker/send_recv.h"

#include "unit/worker/worker_link.h"
#include "worker/raw_receive.h"

namespace tarvik::test {
namespace {

class SendRecv : public WorkerLink {
protected:
    void SetUp() override {
        WorkerLink::SetUp();
        SetNumber(kCpRequestAddrMode, 1);
        SetNumber(kCpCanFuncReqId, 0x7DF);
        SetNumber(kCpCanFuncReqFormat, 5);
        SetNumber(kCpCanPhysReqId, 0x18DA10F1);
        SetNumber(kCpCanPhysReqFormat, 7);
        SetNumber(kCpCanRespUSDTId, 0x7E8);
        SetNumber(kCpCanRespUSDTFormat, 6);
        SetNumber(kCpRC78Handling, 2);
    }
    void Install(const TableOf& table) {
        link->unique_table = UniqueRespTable::Adopt(DuplicatePduUniqueResponseTable(&table.Item()));
    }
    // The exchanges that a request with this table makes: "single", "multi".
    std::string ExchangeWith(const TableOf& table) {
        Install(table);
        std::string made;
        exchange = [&](const CommLink&, const CommRequestData&, CommAnswer*) {
            made += "single";
            return false;
        };
        multi_exchange = [&](const CommLink&, CommMultiRequest&, const std::atomic<bool>*) {
            made += "multi";
            return false;
        };
        Run(MakeRequest());
        return made;
    }
    void Run(const Ref<ComPrimitive>& cop) { ExecuteSendRecv(link.Get(), cop.Get()); }
    Texts LinesOf(const Ref<ComPrimitive>& cop) {
        const LogCapture log;
        Run(cop);
        return ThreadLines(log);
    }
};

TEST_F(SendRecv, GoesFromExecutingToFinished) {
    exchange = [](const CommLink&, const CommRequestData&, CommAnswer* answer) {
        answer->data = TrackedCopy({0x62});
        answer->length = 1;
        answer->wait_time = 1;
        return true;
    };
    const Ref<ComPrimitive> cop = MakeRequest({{5, {0x62}}});
    Run(cop);
    EXPECT_EQ(Events(), (Texts{"status 8011", "result 0/5 62 rx 00000000", "status 8012"}));
    EXPECT_EQ(cop->state, PDU_COPST_FINISHED);
}

TEST_F(SendRecv, EndsAsCancelledWhenItWasAborted) {
    const Ref<ComPrimitive> cop = MakeRequest();
    exchange = [&](const CommLink&, const CommRequestData&, CommAnswer*) {
        cop->abort = true;
        return false;
    };
    Run(cop);
    EXPECT_EQ(Events(), (Texts{"status 8011", "error 257", "status 8013"}));
}

TEST_F(SendRecv, PhysicalModeMarksThePhysicalAddress) {
    const Texts lines = LinesOf(MakeRequest());
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[0], "   PDU_COPT_SENDRECV");
    EXPECT_EQ(lines[1], " > Physical,   Address 18DA10F1, Format 7 - 29-bit, segmented, w/ FC");
    EXPECT_EQ(lines[2], "   Functional, Address 7DF, Format 5 - 11-bit, segmented, w/ FC");
    EXPECT_EQ(lines[3], "   Payload:  22 F1 90 ");
}

TEST_F(SendRecv, FunctionalModeMarksTheFunctionalAddress) {
    SetNumber(kCpRequestAddrMode, 2);
    const Texts lines = LinesOf(MakeRequest());
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[1], "   Physical,   Address 18DA10F1, Format 7 - 29-bit, segmented, w/ FC");
    EXPECT_EQ(lines[2], " > Functional, Address 7DF, Format 5 - 11-bit, segmented, w/ FC");
}

TEST_F(SendRecv, OtherModesLogNoAddresses) {
    for (const std::uint32_t mode : {0u, 3u}) {
        SetNumber(kCpRequestAddrMode, mode);
        const Texts lines = LinesOf(MakeRequest());
        ASSERT_GE(lines.size(), 2u);
        EXPECT_EQ(lines[1], "   Payload:  22 F1 90 ") << mode;
    }
}

TEST_F(SendRecv, ModeDoesNotChooseTheExchange) {
    SetNumber(kCpRequestAddrMode, 2);
    EXPECT_EQ(ExchangeWith(TableOf({{}})), "single");
}

TEST_F(SendRecv, LogsEveryExpectedResponse) {
    const Texts lines = LinesOf(MakeRequest({{5, {0x62, 0xF1}}, {6, {0x7F}, 1}, {7, {}, 2}}));
    ASSERT_GE(lines.size(), 7u);
    EXPECT_EQ(lines[4], "     ID:5 [ACK] FF FF / 62 F1 ");
    EXPECT_EQ(lines[5], "     ID:6 [NAK] FF / 7F ");
    EXPECT_EQ(lines[6], "     ID:7 [NAK] / ");
}

TEST_F(SendRecv, WithoutControlDataThereIsNothingToExpect) {
    const Ref<ComPrimitive> cop = MakeRequest();
    FreeControlData(std::exchange(cop->pCopCtrlData, nullptr));
    const Texts lines = LinesOf(cop);
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[3], "   Payload:  22 F1 90 ");
    EXPECT_EQ(lines[4], "  Nothing received at all. Abort.");
}

TEST_F(SendRecv, TableOfTwoEntriesOrMoreMakesAMultiRequest) {
    EXPECT_EQ(ExchangeWith(TableOf({})), "single");
    EXPECT_EQ(ExchangeWith(TableOf({{}})), "single");
    EXPECT_EQ(ExchangeWith(TableOf({{}, {}})), "multi");
    EXPECT_EQ(ExchangeWith(TableOf({{}, {}, {}})), "multi");
}

TEST_F(SendRecv, TableInUseIsLoggedAsACopyThatIsReleased) {
    PDU_PARAM_ITEM params[] = {{PDU_IT_PARAM, 1, PDU_PT_LONGFIELD, PDU_PC_UNIQUE_ID, nullptr},
                               {PDU_IT_PARAM, 2, PDU_PT_STRUCTFIELD, PDU_PC_UNIQUE_ID, nullptr}};
    PDU_ECU_UNIQUE_RESP_DATA entries[] = {{1, 2, params}};
    const PDU_UNIQUE_RESP_ID_TABLE_ITEM table = {PDU_IT_UNIQUE_RESP_ID_TABLE, 1, entries};
    link->unique_table = UniqueRespTable::Adopt(DuplicatePduUniqueResponseTable(&table));
    const Ref<UniqueRespTable> kept = link->unique_table;
    const LogCapture log;
    exchange = [&](const CommLink&, const CommRequestData&, CommAnswer*) {
        EXPECT_EQ(log.Count("[DuplicatePduUniqueResponseTable] ERROR - cannot duplicate"), 2u);
        EXPECT_FALSE(log.Mentions("[FreePduItem]"));
        return false;
    };
    Run(MakeRequest());
    EXPECT_EQ(log.Count("[FreePduItem] PDU_IT_UNIQUE_RESP_ID_TABLE"), 1u);
    EXPECT_EQ(log.Count("[FreePduItem] ERROR - cannot free"), 1u);
}

TEST_F(SendRecv, MissingTableIsAnError) {
    link->unique_table.Reset();
    const LogCapture log;
    Run(MakeRequest());
    EXPECT_EQ(Events(), (Texts{"status 8011", "error 257", "status 8012"}));
    EXPECT_EQ(ThreadLines(log).back(), "   Failed to duplicate UniqueRespTable");
}

// The thread that destroys a link keeps its mutex.
TEST_F(SendRecv, TableOfALinkThatAnotherThreadDestroyedCountsAsMissing) {
    std::atomic<bool> destroyed{false};
    std::atomic<bool> done{false};
    Thread destroyer([&] {
        OsMutexLock(link->mutex, -1);
        link->running = false;
        destroyed = true;
        EXPECT_TRUE(Eventually([&] { return done.load(); }));
        OsMutexUnlock(link->mutex);
    });
    EXPECT_TRUE(Eventually([&] { return destroyed.load(); }));
    const LogCapture log;
    Run(MakeRequest());
    done = true;
    EXPECT_EQ(ThreadLines(log).back(), "   Failed to duplicate UniqueRespTable");
}

TEST_F(SendRecv, WorkerThatHasDestroyedItsLinkGoesOn) {
    OsMutexLock(link->mutex, -1);
    link->running = false;
    bool asked = false;
    exchange = [&](const CommLink&, const CommRequestData&, CommAnswer*) {
        asked = true;
        return false;
    };
    const LogCapture log;
    Run(MakeRequest());
    OsMutexUnlock(link->mutex);
    EXPECT_TRUE(asked);
    EXPECT_FALSE(log.Mentions("Failed to duplicate"));
}

TEST_F(SendRecv, GivesTheLinksMutexBackBeforeTheExchange) {
    bool free = false;
    exchange = [&](const CommLink&, const CommRequestData&, CommAnswer*) {
        Thread other([&] {
            free = OsMutexLock(link->mutex, 10'000) != MutexWait::kTimeout;
            if (free) OsMutexUnlock(link->mutex);
        });
        return false;
    };
    Run(MakeRequest());
    EXPECT_TRUE(free);
}

TEST_F(SendRecv, TracesTheAddressingInUse) {
    TraceCapture trace;
    Run(MakeRequest());
    trace.Stop();
    EXPECT_TRUE(
        trace.Mentions("\"raw\":false,\"reqAddrMode\":1,\"canFuncReqId\":2015,"
                       "\"canFuncReqFormat\":5,\"canPhysReqId\":416944369,"
                       "\"canPhysReqFormat\":7,\"canRespUSDTId\":2024,"
                       "\"canRespUSDTFormat\":6,\"rc78\":2"));
}

TEST_F(SendRecv, TracesEveryEntryOnItsOwn) {
    Install(TableOf({{{kCpCanPhysReqId, 10}}, {{kCpCanRespUSDTId, 20}}}));
    TraceCapture trace;
    Run(MakeRequest());
    trace.Stop();
    EXPECT_TRUE(
        trace.Mentions("\"idx\":0,\"uniq\":256,\"canPhysReqId\":10,\"canRespUSDTId\":2024"));
    EXPECT_TRUE(
        trace.Mentions("\"idx\":1,\"uniq\":257,\"canPhysReqId\":416944369,\"canRespUSDTId\":20"));
}

TEST_F(SendRecv, PrintsHowLongItHasTaken) {
    FakeTick tick(1000);
    exchange = [&](const CommLink&, const CommRequestData&, CommAnswer*) {
        tick.Advance(7);
        return false;
    };
    StdoutCapture console;
    Run(MakeRequest());
    EXPECT_TRUE(console.Text().ends_with("] > Client side delay was 7 ms\n")) << console.Text();
}

TEST_F(SendRecv, OnARawLinkStartsAReceiveThreadAndFinishes) {
    link->rawMode = true;
    std::string exchanges;
    exchange = [&](const CommLink&, const CommRequestData&, CommAnswer*) {
        exchanges += "single";
        return false;
    };
    const Ref<ComPrimitive> cop = MakeRequest();
    const LogCapture log;
    TraceCapture trace;
    Run(cop);
    trace.Stop();
    EXPECT_EQ(exchanges, "");
    EXPECT_TRUE(cop->has_receive_thread);
    EXPECT_EQ(Events(), (Texts{"status 8011", "status 8012"}));
    EXPECT_FALSE(log.Mentions("Payload"));
    EXPECT_TRUE(trace.Mentions("\"raw\":true"));
    StopRawReception(link.Get(), cop.Get());
}

}  // namespace
}  // namespace tarvik::test
