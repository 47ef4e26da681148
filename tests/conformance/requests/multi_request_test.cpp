#include <gtest/gtest.h>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

using MultiRequest = SerialDongle;

TEST_F(MultiRequest, ThreeControlUnitsAnswerOneFunctionalRequest) {
    CarLink link(hMod);
    const LogCapture log;
    const Outcome outcome = link.Request(ReadPartNumber(), PositiveRead());
    ASSERT_EQ(outcome.results.size(), 3u);
    EXPECT_EQ(log.CountLike("[CommThreadFunc:*]            -> this is a match!"), 3u);
    EXPECT_TRUE(
        log.HasLike("[CommThreadFunc:*]        -> Reporting back matched response for "
                    "table entry 2"));
    for (UNUM32 row = 0; row < 3; ++row) {
        EXPECT_EQ(outcome.results[row].unique_id, row)
            << "the row, not the identifier in the table";
        EXPECT_EQ(outcome.results[row].acceptance_id, 7u);
    }
    EXPECT_TRUE(outcome.errors.empty());
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
    EXPECT_EQ(simulator.LastRequest()["form"], "multi");
    EXPECT_EQ(simulator.LastRequest()["functional"], "7DF");
}

TEST_F(MultiRequest, DongleGetsHalfOfP2MaxWithoutAnAddition) {
    CarLink link(hMod);
    SetNumber("CP_P2Max", 600'000);
    link.Request(ReadVin());
    EXPECT_EQ(simulator.LastRequest()["timeout_ms"], 300);
}

TEST_F(MultiRequest, ResultHasFourTimestampFlagBytesAndTheItemsTime) {
    CarLink link(hMod);
    const UNUM32 hCoP = link.StartRequest(ReadVin());
    ASSERT_TRUE(Eventually([&] {
        const auto event = NextEvent(link.hMod(), link.hCLL());
        if (!event || event->ItemType != PDU_IT_RESULT) return false;
        const auto& result = *static_cast<PDU_RESULT_DATA*>(event->pData);
        EXPECT_EQ(result.TimestampFlags.NumFlagBytes, 4u);
        EXPECT_EQ(result.TxMsgDoneTimestamp, event->Timestamp);
        return true;
    }));
    link.WaitFor(hCoP);
}

TEST_F(MultiRequest, RepeatedResponseIdentifierIsOmitted) {
    Link link(hMod);
    UniqueTable table;
    table.ControlUnit(1, kEngineRequest, kEngineResponse)
        .ControlUnit(2, kEngineRequest, kEngineResponse)
        .ControlUnit(3, kAbsRequest, kAbsResponse);
    Pdu().PDUSetUniqueRespIdTable(link.hMod(), link.hCLL(), table.Item());
    SetNumber("CP_CanFuncReqId", kFunctionalRequest);
    SetNumber("CP_P2Max", 1'000'000);
    link.Connect();
    const LogCapture log;
    const Outcome outcome = link.Request(ReadVin());
    EXPECT_EQ(simulator.LastRequest()["entries"].size(), 2u);
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    EXPECT_EQ(
        log.MissingOf({"[CommThreadFunc:*]    prepare multi-request packet with 3 entries in "
                       "UniqueRespTable",
                       "[CommThreadFunc:*]    send multi-request packet with 2 entries",
                       // The dongle answers with indexes 0 and 1; the second row has position 2.
                       "[CommRequestMulti] ERROR: response #1, ID: 1 doesn't match table",
                       "[CommThreadFunc:*]    done, parse 2 responses",
                       "[CommThreadFunc:*]      #1 -> no data"}),
        "");
}

TEST_F(MultiRequest, EntryWithoutIdentifiersInheritsThoseOfThePreviousEntry) {
    Link link(hMod);
    SetNumber("CP_CanPhysReqId", kGearboxRequest);
    SetNumber("CP_CanRespUSDTId", kGearboxResponse);
    UniqueTable table;
    table.Entry(1, {{"CP_CanRespUSDTId", kEngineResponse}})
        .Entry(2, {{"CP_CanPhysReqId", kAbsRequest}, {"CP_CanRespUSDTId", kAbsResponse}})
        .Entry(3, {});
    Pdu().PDUSetUniqueRespIdTable(link.hMod(), link.hCLL(), table.Item());
    SetNumber("CP_CanFuncReqId", kFunctionalRequest);
    SetNumber("CP_P2Max", 1'000'000);
    link.Connect();
    link.Request(ReadVin());
    // The third repeats the second's response identifier, so it is omitted.
    const nlohmann::json entries = simulator.LastRequest()["entries"];
    ASSERT_EQ(entries.size(), 2u) << entries.dump();
}

TEST_F(MultiRequest, OnlyTheSilentControlUnitHasNoResult) {
    CarLink link(hMod);
    simulator.Command(R"(unit transmission {"silent": true})");
    SetNumber("CP_P2Max", 100'000);
    const LogCapture log;
    const Outcome outcome = link.Request(ReadVin());
    ASSERT_EQ(outcome.results.size(), 2u);
    EXPECT_EQ(outcome.results[0].unique_id, 0u);
    EXPECT_EQ(outcome.results[1].unique_id, 2u);
    EXPECT_TRUE(outcome.errors.empty());
    EXPECT_TRUE(log.HasLike("[CommThreadFunc:*]      #1 -> no data"));
}

TEST_F(MultiRequest, BusyBeforeTheAnswerIsIgnored) {
    CarLink link(hMod);
    simulator.Command("busy 3");
    EXPECT_EQ(link.Request(ReadVin()).results.size(), 3u);
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
}

TEST_F(MultiRequest, CancellationEndsTheWaitForALostAnswer) {
    CarLink link(hMod);
    simulator.Command(R"(behaviour {"lost": true})");
    const LogCapture log;
    const UNUM32 hCoP = link.StartRequest(ReadVin());
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    const std::uint64_t before = TickMs();
    ASSERT_EQ(link.Cancel(hCoP), PDU_STATUS_NOERROR);
    const Outcome outcome = link.WaitFor(hCoP);
    EXPECT_LT(TickMs() - before, 5000u) << "an attempt alone lasts 10 s";
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_CANCELLED);
    EXPECT_EQ(outcome.errors, std::vector<UNUM32>{259});
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] Aborting CoP id " + std::to_string(hCoP)));
    EXPECT_TRUE(
        log.HasLike("[CommThreadFunc:*]   Request timed out - is the OBD interface connected?"));
}

}  // namespace
}  // namespace conformance
