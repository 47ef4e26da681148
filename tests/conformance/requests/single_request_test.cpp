#include <gtest/gtest.h>

#include <cstdio>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

using SingleRequest = SerialDongle;

TEST_F(SingleRequest, IsAnsweredByOneResultBetweenExecutingAndFinished) {
    EngineLink link(hMod);
    const Outcome outcome = link.Request(ReadVin(), PositiveRead());
    EXPECT_EQ(outcome.states, (std::vector<UNUM32>{PDU_COPST_EXECUTING, PDU_COPST_FINISHED}));
    EXPECT_TRUE(outcome.errors.empty());
    ASSERT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(Hex(outcome.results[0].data).substr(0, 8), "62 F1 90");
    EXPECT_EQ(outcome.results[0].data.size(), 20u);
    EXPECT_EQ(outcome.results[0].acceptance_id, 7u);
    EXPECT_EQ(outcome.results[0].unique_id, 0u);
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
}

TEST_F(SingleRequest, ResultItemHasFourRxFlagBytesNoTimestampFlagsAndTheTag) {
    EngineLink link(hMod);
    ControlData control;
    int tag = 0;
    const UNUM32 hCoP = link.Start(PDU_COPT_SENDRECV, ReadVin(), control.Data(), &tag);
    bool seen = false;
    ASSERT_TRUE(Eventually([&] {
        const auto event = NextEvent(link.hMod(), link.hCLL());
        if (!event || event->ItemType != PDU_IT_RESULT) return false;
        const auto& result = *static_cast<PDU_RESULT_DATA*>(event->pData);
        EXPECT_EQ(event->hCop, hCoP);
        EXPECT_EQ(event->pCoPTag, &tag);
        EXPECT_EQ(result.RxFlag.NumFlagBytes, 4u);
        for (UNUM32 i = 0; i < 4; ++i) {
            EXPECT_EQ(result.RxFlag.pFlagData[i], 0u);
        }
        EXPECT_EQ(result.TimestampFlags.NumFlagBytes, 0u);
        EXPECT_EQ(result.TxMsgDoneTimestamp, 0u);
        EXPECT_EQ(result.StartMsgTimestamp, 0u);
        EXPECT_EQ(result.pExtraInfo, nullptr);
        seen = true;
        return true;
    }));
    EXPECT_TRUE(seen);
    link.WaitFor(hCoP);
}

TEST_F(SingleRequest, TableEntryOverridesTheGlobalIdentifiers) {
    SetNumber("CP_CanPhysReqId", kGearboxRequest);
    SetNumber("CP_CanRespUSDTId", kGearboxResponse);
    Link link(hMod);
    link.Address(kAbsRequest, kAbsResponse);
    SetNumber("CP_P2Max", 1'000'000);
    link.Connect();
    ASSERT_EQ(link.Request(ReadVin()).results.size(), 1u);
    EXPECT_EQ(simulator.LastRequest()["physical"], "713");
    EXPECT_EQ(simulator.LastRequest()["response"], "77D");
}

TEST_F(SingleRequest, GlobalIdentifierChangedAfterCreationDoesNotAffectTheLink) {
    SetNumber("CP_CanPhysReqId", kGearboxRequest);
    SetNumber("CP_CanRespUSDTId", kGearboxResponse);
    SetNumber("CP_P2Max", 1'000'000);
    Link link(hMod);
    SetNumber("CP_CanPhysReqId", kEngineRequest);
    SetNumber("CP_CanRespUSDTId", kEngineResponse);
    link.Connect();
    ASSERT_EQ(link.Request(ReadVin()).results.size(), 1u);
    EXPECT_EQ(simulator.LastRequest()["physical"], "7E1");
}

TEST_F(SingleRequest, PacketHasThePhysicalIdentifierInPlaceOfTheFunctionalOne) {
    EngineLink link(hMod);
    SetNumber("CP_CanFuncReqId", kFunctionalRequest);
    ASSERT_EQ(link.Request(ReadVin()).results.size(), 1u);
    EXPECT_EQ(simulator.LastRequest()["functional"], "7E0");
    EXPECT_EQ(simulator.LastRequest()["physical"], "7E0");
}

TEST_F(SingleRequest, TimeoutIsP2MaxDividedBy2000AndTheDongleGets500More) {
    EngineLink link(hMod);
    const UNUM32 rows[][2] = {
        {50'000, 525}, {0, 500}, {1999, 500}, {2000, 501}, {0xFFFFFFFF, 2'147'983}};
    for (const auto& [p2_max, timeout_ms] : rows) {
        SetNumber("CP_P2Max", p2_max);
        link.Request(ReadVin());
        EXPECT_EQ(simulator.LastRequest()["timeout_ms"], timeout_ms) << p2_max;
    }
}

TEST_F(SingleRequest, UnmatchedResponsesGiveTenErrors259ThenFinished) {
    EngineLink link(hMod);
    const LogCapture log;
    const Outcome outcome =
        link.Request(ReadVin(), {{.type = 0, .mask = {0xFF}, .pattern = {0x11}}});
    EXPECT_EQ(outcome.errors, std::vector<UNUM32>(10, 259));
    EXPECT_TRUE(outcome.results.empty());
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    EXPECT_EQ(simulator.Count("in CREQ"), 10u);
    EXPECT_EQ(log.CountLike("[CommThreadFunc:*]  No match"), 10u);
    EXPECT_EQ(log.CountLike("[CommThreadFunc:*]      no match"), 10u);
}

// The response byte masks both sides: 7F and 62 are equal in the bits of 62.
TEST_F(SingleRequest, PositiveAnswerAlsoMatchesThePatternOfANegativeOne) {
    EngineLink link(hMod);
    const Outcome outcome = link.Request(
        ReadVin(), {{.type = 1, .acceptance_id = 1, .mask = {0xFF}, .pattern = {0x7F}},
                    {.type = 0, .acceptance_id = 2, .mask = {0xFF}, .pattern = {0x62}}});
    ASSERT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(outcome.results[0].acceptance_id, 1u);
}

TEST_F(SingleRequest, NegativeResponseIsReportedIfItIsExpected) {
    EngineLink link(hMod);
    simulator.Command(R"(unit engine {"negative": "31"})");
    const Outcome outcome = link.Request(
        ReadVin(),
        {{.type = 1, .acceptance_id = 9, .mask = {0xFF, 0xFF}, .pattern = {0x7F, 0x22}}});
    ASSERT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(Hex(outcome.results[0].data), "7F 22 31");
    EXPECT_EQ(outcome.results[0].acceptance_id, 9u);
}

TEST_F(SingleRequest, SilentControlUnitGivesError257ThenFinished) {
    EngineLink link(hMod);
    simulator.Command(R"(unit engine {"silent": true})");
    SetNumber("CP_P2Max", 2000);
    const LogCapture log;
    StdoutCapture console;
    ExpectError(link.Request(ReadVin()), 257);
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
    EXPECT_TRUE(console.Has("[Transmit] < TIMEOUT\n"));
    EXPECT_TRUE(log.Has("[Transmit]   Received a timeout"));
    EXPECT_TRUE(log.HasLike("[CommThreadFunc:*]  Nothing received at all. Abort."));
}

TEST_F(SingleRequest, DongleErrorGivesError257ThenFinished) {
    EngineLink link(hMod);
    simulator.Command(R"(next 1 {"lost": true})");
    const LogCapture log;
    StdoutCapture console;
    const UNUM32 hCoP = link.StartRequest(ReadVin());
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    // wait_time 0xFFFFFFFE, no bytes, the request's id
    char payload[32];
    std::snprintf(payload, sizeof payload, "FEFFFFFF00000000%02X%02X%02X%02X", hCoP & 0xFF,
                  hCoP >> 8 & 0xFF, hCoP >> 16 & 0xFF, hCoP >> 24);
    simulator.Command(std::string("packet CRES ") + payload);
    ExpectError(link.WaitFor(hCoP), 257);
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
    EXPECT_TRUE(log.Has("[Transmit]   Received an error"));
    EXPECT_TRUE(console.Has("[Transmit] < (4294967294 ms) ERROR\n"));
}

TEST_F(SingleRequest, ResponsePendingIsHandledByTheDongle) {
    EngineLink link(hMod);
    simulator.Command(R"(unit engine {"pending": 3, "pending_interval_ms": 5})");
    const Outcome outcome = link.Request(ReadVin(), PositiveRead());
    ASSERT_EQ(outcome.results.size(), 1u);
    EXPECT_TRUE(outcome.errors.empty());
}

TEST_F(SingleRequest, BusyBeforeTheAnswerIsOnlyLogged) {
    EngineLink link(hMod);
    simulator.Command("busy 2 bus \"is\" busy");
    const LogCapture log;
    const Outcome outcome = link.Request(ReadVin(), PositiveRead());
    ASSERT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(simulator.Count("in CREQ"), 1u);
    EXPECT_EQ(log.CountLike("[EnqueueReceivedPacket] BUSY (ID *): bus \"is\" busy"), 2u);
}

TEST_F(SingleRequest, FragmentedAnswerIsReassembled) {
    EngineLink link(hMod);
    simulator.Command(R"(behaviour {"fragment": 20})");
    const Outcome outcome = link.Request(ReadVin(), PositiveRead());
    ASSERT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(outcome.results[0].data.size(), 20u);
    EXPECT_GT(simulator.Count("out FRAG"), 5u);
}

TEST_F(SingleRequest, SealedAnswerIsOpened) {
    EngineLink link(hMod);
    simulator.Command("seal reset");
    simulator.Command(R"(next 1 {"seal": true})");
    const Outcome outcome = link.Request(ReadVin(), PositiveRead());
    ASSERT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(outcome.results[0].data.size(), 20u);
    EXPECT_EQ(simulator.Count("out CRYP"), 1u);
}

TEST_F(SingleRequest, AnswersToOtherRequestsAreIgnored) {
    EngineLink link(hMod);
    simulator.Command(R"(next 1 {"stray": 5, "duplicate": 2})");
    const Outcome outcome = link.Request(ReadVin(), PositiveRead());
    EXPECT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(link.Request(ReadPartNumber(), PositiveRead()).results.size(), 1u);
}

TEST_F(SingleRequest, GarbageOnTheWireIsSkippedUntilTheNextSync) {
    EngineLink link(hMod);
    const StdoutCapture console;
    simulator.Command("garbage 100");
    const Outcome outcome = link.Request(ReadVin(), PositiveRead());
    EXPECT_EQ(outcome.results.size(), 1u);
}

TEST_F(SingleRequest, TelemetryAndUnknownPacketsDoNotDisturbARequest) {
    EngineLink link(hMod);
    simulator.Command("tele {\"v\":1,\"tasks\":[]}");
    simulator.Command("packet ZZZZ 0102");
    simulator.Command("ping 0102");
    EXPECT_EQ(link.Request(ReadVin(), PositiveRead()).results.size(), 1u);
    EXPECT_TRUE(simulator.WaitFor(1, "in REPL"));
}

TEST_F(SingleRequest, RequestTooLongForThePacketFailsAndSendsNothing) {
    EngineLink link(hMod);
    ExpectError(link.Request(std::vector<UNUM8>(65536, 0x22)), 257);
    EXPECT_EQ(simulator.Count("in CREQ") + simulator.Count("in FRAG"), 0u);
    EXPECT_EQ(link.Request(ReadVin()).results.size(), 1u);
}

TEST_F(SingleRequest, RequestWithoutBytesFails) {
    EngineLink link(hMod);
    ExpectError(link.Request({}), 257);
}

TEST_F(SingleRequest, QueuedRequestsRunInOrder) {
    EngineLink link(hMod);
    std::vector<UNUM32> handles;
    for (int i = 0; i < 50; ++i) {
        handles.push_back(link.StartRequest(ReadVin(), PositiveRead()));
    }
    std::vector<UNUM32> finished;
    ASSERT_TRUE(Eventually([&] {
        while (const auto event = NextEvent(link.hMod(), link.hCLL())) {
            if (event->ItemType == PDU_IT_STATUS && StatusOf(*event) == PDU_COPST_FINISHED) {
                finished.push_back(event->hCop);
            }
        }
        return finished.size() == handles.size();
    }));
    EXPECT_EQ(finished, handles);
}

TEST_F(SingleRequest, LinksOfOneDongleGetTheirOwnAnswers) {
    EngineLink engine(hMod);
    Link abs(hMod);
    abs.Address(kAbsRequest, kAbsResponse);
    abs.Connect();
    abs.DropEvents();
    for (int round = 0; round < 20; ++round) {
        const UNUM32 first = engine.StartRequest(ReadPartNumber(), PositiveRead());
        const UNUM32 second = abs.StartRequest(ReadPartNumber(), PositiveRead());
        EXPECT_EQ(second, first + 1);
        const Outcome of_engine = engine.WaitFor(first);
        const Outcome of_abs = abs.WaitFor(second);
        ASSERT_EQ(of_engine.results.size(), 1u);
        ASSERT_EQ(of_abs.results.size(), 1u);
        EXPECT_NE(of_engine.results[0].data, of_abs.results[0].data);
    }
}

TEST_F(SingleRequest, ConsoleAndLogShowTheExchange) {
    EngineLink link(hMod);
    SetNumber("CP_RequestAddrMode", 1);
    SetNumber("CP_CanFuncReqId", kFunctionalRequest);
    SetNumber("CP_CanFuncReqFormat", 5);
    SetNumber("CP_CanPhysReqId", 0x18DA10F1);
    SetNumber("CP_CanPhysReqFormat", 7);
    const LogCapture log;
    StdoutCapture console;
    link.Request(ReadVin(), PositiveRead());
    EXPECT_EQ(
        log.MissingOf({
            "[PDUStartComPrimitive] (*, *, 32772, 3, *",
            "[PDUStartComPrimitive]   NumSendCycles                1",
            "[PDUStartComPrimitive]   NumReceiveCycles             1",
            "[PDUStartComPrimitive]   TxFlag                       00 00 00 00 ",
            "[UpdateCopState] CoP #* Status: 8011, Duration: 0 ms",
            "[CommThreadFunc:*]   PDU_COPT_SENDRECV",
            "[CommThreadFunc:*] > Physical,   Address 18DA10F1, Format 7 - 29-bit, segmented, w/ "
            "FC",
            "[CommThreadFunc:*]   Functional, Address 7DF, Format 5 - 11-bit, segmented, w/ FC",
            "[CommThreadFunc:*]   Payload:  22 F1 90 ",
            "[CommThreadFunc:*]     ID:7 [ACK] FF / 62 ",
            "[Transmit]   Tx 0x7DF/0x7E0, Rx 0x7E8, 500 ms, 22 F1 90 ",
            "[WaitForPacket] Received: CRES",
            "[Transmit]   Rx (* ms) 62 F1 90 *",
            "[CommThreadFunc:*]    Response #0 ",
            "[CommThreadFunc:*]      this is a match!",
            "[CommThreadFunc:*]  Reporting back matched response",
            "[UpdateCopState] CoP #* Status: 8012, Duration: * ms",
        }),
        "");
    EXPECT_TRUE(Eventually([&] { return log.HasLike("[CommThreadFunc] free CoP #*"); }));
    EXPECT_TRUE(console.Has("[Transmit] > 0x7DF/0x7E0, Rx 0x7E8 (500 ms) 22 F1 90 \n"));
    EXPECT_TRUE(console.Has("[Transmit] < ("));
    EXPECT_TRUE(Matches(console.Text(), "*[CommThreadFunc:*] > Client side delay was * ms\n*"));
}

TEST_F(SingleRequest, FunctionalAddressModeOnlyMovesTheMarkInTheLog) {
    EngineLink link(hMod);
    SetNumber("CP_RequestAddrMode", 2);
    SetNumber("CP_CanFuncReqFormat", 15);
    const LogCapture log;
    ASSERT_EQ(link.Request(ReadVin()).results.size(), 1u);
    EXPECT_EQ(log.MissingOf({"[CommThreadFunc:*]   Physical,   Address *, Format 0 - *",
                             "[CommThreadFunc:*] > Functional, Address *, Format 15 - extended, "
                             "29-bit, segmented, w/ FC"}),
              "");
    EXPECT_EQ(simulator.LastRequest()["form"], "single");
}

TEST_F(SingleRequest, DoipLinkLogsItsAddresses) {
    PDU_RSC_DATA resource{4001, 3001, 0, nullptr};
    UNUM32 hCLL = PDU_HANDLE_UNDEF;
    ASSERT_EQ(Pdu().PDUCreateComLogicalLink(hMod, &resource, PDU_ID_UNDEF, nullptr, &hCLL, nullptr),
              PDU_STATUS_NOERROR);
    Pdu().PDUConnect(hMod, hCLL);
    SetNumber("CP_P2Max", 2000);
    const LogCapture log;
    ControlData control;
    UNUM32 hCoP = 0;
    std::vector<UNUM8> request = ReadVin();
    ASSERT_EQ(Pdu().PDUStartComPrimitive(hMod, hCLL, PDU_COPT_SENDRECV, 3, request.data(),
                                         control.Data(), nullptr, &hCoP),
              PDU_STATUS_NOERROR);
    EXPECT_TRUE(Eventually([&] {
        return log.Has("[Transmit]   DoIP Protocol - LogicalAddr: 0x0, Source: 0x0, Target: 0x0");
    }));
    Pdu().PDUDestroyComLogicalLink(hMod, hCLL);
}

}  // namespace
}  // namespace conformance
