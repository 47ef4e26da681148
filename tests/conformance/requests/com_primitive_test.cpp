#include <gtest/gtest.h>

#include "conformance/framework/callbacks.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/vehicle.h"
#include "conformance/framework/waiting.h"

namespace conformance {
namespace {

using ComPrimitives = SerialDongle;

const std::vector<UNUM8> kVinAnswer = {0x62, 0xF1, 0x90, 0x56};

std::vector<UNUM32> LinkStates(Link& link) {
    std::vector<UNUM32> states;
    while (const auto event = NextEvent(link.hMod(), link.hCLL())) {
        if (event->ItemType == PDU_IT_STATUS && event->hCop == PDU_HANDLE_UNDEF) {
            states.push_back(StatusOf(*event));
        }
    }
    return states;
}

TEST_F(ComPrimitives, OfflineLinkRefusesAndConsumesNoHandle) {
    EngineLink link(hMod);
    const UNUM32 before = link.Start(PDU_COPT_UPDATEPARAM);
    ASSERT_EQ(link.Disconnect(), PDU_STATUS_NOERROR);
    const LogCapture log;
    UNUM32 hCoP = 4711;
    EXPECT_EQ(Pdu().PDUStartComPrimitive(link.hMod(), link.hCLL(), PDU_COPT_UPDATEPARAM, 0, nullptr,
                                         nullptr, nullptr, &hCoP),
              PDU_ERR_CLL_NOT_CONNECTED);
    EXPECT_EQ(hCoP, 4711u);
    EXPECT_TRUE(log.Has("[PDUStartComPrimitive] Returning PDU_ERR_CLL_NOT_CONNECTED"));
    link.Connect();
    EXPECT_EQ(link.Start(PDU_COPT_UPDATEPARAM), before + 1);
}

TEST_F(ComPrimitives, InvalidLinkIsRefused) {
    const LogCapture log;
    UNUM32 hCoP = 0;
    EXPECT_EQ(Pdu().PDUStartComPrimitive(hMod, 77, PDU_COPT_UPDATEPARAM, 0, nullptr, nullptr,
                                         nullptr, &hCoP),
              PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(Pdu().PDUCancelComPrimitive(hMod, 77, 1), PDU_ERR_INVALID_HANDLE);
    EXPECT_TRUE(log.Has("[PDUStartComPrimitive] Returning PDU_ERR_INVALID_HANDLE"));
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] Returning PDU_ERR_INVALID_HANDLE"));
}

TEST_F(ComPrimitives, UpdateAndRestoreParamProduceExactlyOneStatusItem) {
    EngineLink link(hMod);
    for (const UNUM32 type : {PDU_COPT_UPDATEPARAM, PDU_COPT_RESTORE_PARAM}) {
        const LogCapture log;
        const UNUM32 hCoP = link.Start(type);
        const Outcome outcome = link.WaitFor(hCoP);
        EXPECT_EQ(outcome.states, std::vector<UNUM32>{PDU_COPST_FINISHED});
        link.Settle();
        std::size_t more = 0;
        while (const auto event = NextEvent(link.hMod(), link.hCLL())) {
            more += event->hCop == hCoP ? 1u : 0u;
        }
        EXPECT_EQ(more, 0u);
        EXPECT_EQ(link.State(), PDU_CLLST_ONLINE);
        // Without control data the log shows zeros and no flags.
        EXPECT_TRUE(log.Has("[PDUStartComPrimitive]   NumSendCycles                0"));
        EXPECT_TRUE(log.Has("[PDUStartComPrimitive]   NumReceiveCycles             0"));
        EXPECT_TRUE(log.Has("[PDUStartComPrimitive]   TxFlag                       "));
    }
    EXPECT_EQ(simulator.Count("in CREQ") + simulator.Count("in TSPR"), 0u);
}

TEST_F(ComPrimitives, DelayIsQueuedAndLoggedAndProducesNothing) {
    EngineLink link(hMod);
    const LogCapture log;
    const UNUM32 hCoP = link.Start(PDU_COPT_DELAY);
    EXPECT_TRUE(log.Has("[PDUStartComPrimitive] Unhandled: 8005"));
    link.Settle();
    while (const auto event = NextEvent(link.hMod(), link.hCLL()))
        EXPECT_NE(event->hCop, hCoP);
    EXPECT_TRUE(log.Has("[CommThreadFunc] free CoP #" + std::to_string(hCoP)));
}

TEST_F(ComPrimitives, EachTypeIsLoggedInItsOwnWay) {
    struct Row {
        UNUM32 type;
        std::vector<std::string> lines;  // between the control data's lines and the last line
    };
    const Row rows[] = {
        {PDU_COPT_STARTCOMM, {"[PDUStartComPrimitive]   PDU_COPT_STARTCOMM"}},
        {PDU_COPT_STOPCOMM, {"[PDUStartComPrimitive]   PDU_COPT_STOPCOMM"}},
        {PDU_COPT_UPDATEPARAM, {"[PDUStartComPrimitive]   PDU_COPT_UPDATEPARAM"}},
        {PDU_COPT_SENDRECV, {}},
        {PDU_COPT_RESTORE_PARAM, {"[PDUStartComPrimitive] Unhandled: 8006"}},
        {0, {"[PDUStartComPrimitive] Unhandled: 0000"}},
        {0xFFFFFFFF, {"[PDUStartComPrimitive] Unhandled: FFFFFFFF"}},
    };
    EngineLink link(hMod);
    ControlData control(AnyResponse(), 3, -2);
    for (const Row& row : rows) {
        const LogCapture log;
        const UNUM32 hCoP = link.Start(row.type, ReadVin(), control.Data());
        link.Settle();
        std::vector<std::string> lines = log.LinesOf("PDUStartComPrimitive");
        ASSERT_GE(lines.size(), row.lines.size() + 5) << row.type;
        lines.resize(row.lines.size() + 5);  // the lines after it are from Settle
        EXPECT_TRUE(Matches(lines[0], "[PDUStartComPrimitive] (" + std::to_string(link.hMod()) +
                                          ", " + std::to_string(link.hCLL()) + ", " +
                                          std::to_string(row.type) + ", 3, *)"))
            << lines[0];
        std::vector<std::string> expected = {
            "[PDUStartComPrimitive]   NumSendCycles                3",
            "[PDUStartComPrimitive]   NumReceiveCycles             4294967294",
            "[PDUStartComPrimitive]   TxFlag                       00 00 00 00 "};
        expected.insert(expected.end(), row.lines.begin(), row.lines.end());
        expected.push_back("[PDUStartComPrimitive] Returning PDU_STATUS_NOERROR, *phCoP=" +
                           std::to_string(hCoP));
        lines.erase(lines.begin());
        EXPECT_EQ(lines, expected);
    }
}

TEST_F(ComPrimitives, UnknownTypesProduceNothing) {
    EngineLink link(hMod);
    for (const UNUM32 type : {0u, 0x8000u, 0x8007u, 0xFFFFFFFFu}) {
        const UNUM32 hCoP = link.Start(type, ReadVin());
        link.Settle();
        while (const auto event = NextEvent(link.hMod(), link.hCLL()))
            EXPECT_NE(event->hCop, hCoP);
    }
    EXPECT_EQ(simulator.Count("in CREQ"), 0u);
    EXPECT_EQ(simulator.Count("in TSPR"), 0u);
}

TEST_F(ComPrimitives, CannotBeCancelledThroughAnotherLink) {
    EngineLink link(hMod);
    EngineLink other(hMod);
    simulator.Command(R"(next 1 {"delay_ms": 300})");
    const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
    const LogCapture log;
    EXPECT_EQ(other.Cancel(hCoP), PDU_ERR_INVALID_HANDLE);
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] Could not find CoP id " + std::to_string(hCoP) +
                        ", Returning PDU_ERR_INVALID_HANDLE"));
    EXPECT_EQ(link.WaitFor(hCoP).FinalState(), PDU_COPST_FINISHED);
}

// Null pointers with counts above 0, as some applications pass them.
TEST_F(ComPrimitives, ControlDataWithNullArraysIsCopiedWithoutThem) {
    EngineLink link(hMod);
    PDU_COP_CTRL_DATA control = {0, 1, 1, 0, {4, nullptr}, 3, nullptr};
    const UNUM32 hCoP = link.Start(PDU_COPT_SENDRECV, ReadVin(), &control);
    const Outcome outcome = link.WaitFor(hCoP);
    EXPECT_EQ(outcome.errors.size(), 10u) << "nothing is expected, so nothing matches";
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    EXPECT_EQ(Pdu().PDUStartComPrimitive(link.hMod(), link.hCLL(), PDU_COPT_UPDATEPARAM, 5, nullptr,
                                         nullptr, nullptr, nullptr),
              PDU_STATUS_NOERROR);
}

TEST_F(ComPrimitives, StartCommFinishesThenSetsTheLinkToCommStarted) {
    EngineLink link(hMod);
    SetNumber("CP_TesterPresentTime", 2'000'999);
    SetBytes("CP_TesterPresentMessage", {0x3E, 0x80});
    const LogCapture log;
    const UNUM32 hCoP = link.Start(PDU_COPT_STARTCOMM);
    EXPECT_EQ(link.WaitFor(hCoP).states, std::vector<UNUM32>{PDU_COPST_FINISHED});
    EXPECT_TRUE(Eventually([&] { return link.State() == PDU_CLLST_COMM_STARTED; }));
    ASSERT_TRUE(simulator.WaitFor(1, "in TSPR"));
    const nlohmann::json packet = simulator.Last(1, "in TSPR")[0];
    EXPECT_EQ(packet["length"], 18);
    EXPECT_EQ(packet["fields"]["period_ms"], 2000);
    EXPECT_EQ(packet["fields"]["value"], 0x700);
    EXPECT_EQ(packet["fields"]["message"], "3E80");
    EXPECT_TRUE(log.HasLike("[CommThreadFunc:*]   [CoP#" + std::to_string(hCoP) +
                            "] Enable TesterPresent with 2 byte every 2000 ms"));
    EXPECT_EQ(LinkStates(link), std::vector<UNUM32>{PDU_CLLST_COMM_STARTED});

    const UNUM32 stop = link.Start(PDU_COPT_STOPCOMM);
    EXPECT_EQ(link.WaitFor(stop).states, std::vector<UNUM32>{PDU_COPST_FINISHED});
    ASSERT_TRUE(simulator.WaitFor(2, "in TSPR"));
    const nlohmann::json off = simulator.Last(1, "in TSPR")[0];
    EXPECT_EQ(off["length"], 16);
    EXPECT_EQ(off["fields"]["period_ms"], 0);
    EXPECT_EQ(off["fields"]["value"], 0x700);
    EXPECT_EQ(link.State(), PDU_CLLST_ONLINE);
    EXPECT_TRUE(log.HasLike("[CommThreadFunc:*]   [CoP#" + std::to_string(stop) +
                            "] Disable TesterPresent"));
}

TEST_F(ComPrimitives, TesterPresentMessageHasOneTo32BytesOrIsNotSent) {
    EngineLink link(hMod);
    std::size_t sent = 0;
    for (const std::size_t size : {33u, 32u, 0u, 1u}) {
        SetBytes("CP_TesterPresentMessage", std::vector<UNUM8>(size, 0x3E));
        const LogCapture log;
        link.WaitFor(link.Start(PDU_COPT_STARTCOMM));
        link.Settle();
        // After another request, everything to be sent has been sent.
        link.Request(ReadVin());
        const bool is_sent = size == 1 || size == 32;
        if (is_sent) ++sent;
        EXPECT_EQ(simulator.Count("in TSPR"), sent) << size;
        EXPECT_EQ(log.HasLike("*Enable TesterPresent*"), is_sent) << size;
        if (!is_sent) continue;
        EXPECT_EQ(simulator.Last(1, "in TSPR")[0]["length"], 16 + size);
    }
}

TEST_F(ComPrimitives, QueuedOneCancelledBeforeItsTurnEndsAsCancelled) {
    EngineLink link(hMod);
    simulator.HoldNextRequest();
    const UNUM32 running = link.StartRequest(ReadVin(), PositiveRead());
    const UNUM32 queued = link.StartRequest(ReadVin(), PositiveRead());
    EXPECT_EQ(link.Cancel(queued), PDU_STATUS_NOERROR);
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    simulator.AnswerRequest(running, kVinAnswer);
    EXPECT_EQ(link.WaitFor(running).FinalState(), PDU_COPST_FINISHED);
    EXPECT_EQ(link.WaitFor(queued).FinalState(), PDU_COPST_CANCELLED);
}

TEST_F(ComPrimitives, SingleRequestCancelledInFlightEndsAsCancelledAfterItsAnswer) {
    EngineLink link(hMod);
    simulator.HoldNextRequest();
    const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    ASSERT_EQ(link.Cancel(hCoP), PDU_STATUS_NOERROR);
    simulator.AnswerRequest(hCoP, kVinAnswer);
    const Outcome outcome = link.WaitFor(hCoP);
    EXPECT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_CANCELLED);
}

// In the callback for its final state a ComPrimitive is finished but not yet released.
TEST_F(ComPrimitives, CancellingAFinishedOneSucceedsUntilItIsReleased) {
    EngineLink link(hMod);
    const LogCapture log;
    CallbackSpy spy;
    std::vector<T_PDU_ERROR> inside;
    spy.OnCall([&](const CallbackCall& call) {
        while (const auto event = NextEvent(call.hMod, call.hCLL)) {
            if (StatusOf(*event) != PDU_COPST_FINISHED) continue;
            inside.push_back(Pdu().PDUCancelComPrimitive(call.hMod, call.hCLL, event->hCop));
        }
    });
    link.Register(spy.Function());
    const UNUM32 hCoP = link.Start(PDU_COPT_UPDATEPARAM);
    ASSERT_TRUE(spy.WaitForCalls(1));
    EXPECT_TRUE(Eventually([&] { return link.Cancel(hCoP) == PDU_ERR_INVALID_HANDLE; }));
    link.Register(nullptr);
    EXPECT_EQ(inside, std::vector<T_PDU_ERROR>{PDU_STATUS_NOERROR});
    const std::string id = std::to_string(hCoP);
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] CoP id " + id + " already finished"));
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] Could not find CoP id " + id +
                        ", Returning PDU_ERR_INVALID_HANDLE"));
}

TEST_F(ComPrimitives, ControlDataIsCopiedAtStart) {
    EngineLink link(hMod);
    simulator.Command(R"(next 1 {"delay_ms": 100})");
    UNUM32 hCoP = 0;
    {
        ControlData control(PositiveRead());
        hCoP = link.Start(PDU_COPT_SENDRECV, ReadVin(), control.Data());
    }
    EXPECT_EQ(link.WaitFor(hCoP).results.size(), 1u);
}

TEST_F(ComPrimitives, TagsAreReturnedUnchangedAndNeverDereferenced) {
    EngineLink link(hMod, reinterpret_cast<void*>(std::uintptr_t{3}));
    CallbackSpy spy;
    link.Register(spy.Function());
    void* tag = reinterpret_cast<void*>(std::uintptr_t{0xFFFFFFFFFFFFFFFF});
    const UNUM32 hCoP = link.Start(PDU_COPT_UPDATEPARAM, {}, nullptr, tag);
    ASSERT_TRUE(spy.WaitForCalls(1));
    const auto event = NextEvent(link.hMod(), link.hCLL());
    ASSERT_TRUE(event);
    EXPECT_EQ(event->hCop, hCoP);
    EXPECT_EQ(event->pCoPTag, tag);
    EXPECT_EQ(spy.Calls()[0].cll_tag, reinterpret_cast<void*>(std::uintptr_t{3}));
    link.Register(nullptr);
}

TEST_F(ComPrimitives, AThousandInARowAllFinish) {
    EngineLink link(hMod);
    std::size_t results = 0;
    for (int i = 0; i < 1000; ++i) {
        results += link.Request(ReadVin(), PositiveRead()).results.size();
    }
    EXPECT_EQ(results, 1000u);
}

TEST_F(ComPrimitives, DestroyedLinkEndsItsRequestInFlight) {
    const LogCapture log;
    {
        EngineLink link(hMod);
        simulator.Command(R"(behaviour {"lost": true})");
        link.StartRequest(ReadVin());
        link.StartRequest(ReadVin());
        ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
        ASSERT_EQ(link.Destroy(), PDU_STATUS_NOERROR);
    }
    const std::uint64_t before = TickMs();
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    EXPECT_LT(TickMs() - before, 5000u) << "an attempt alone lasts 10 s";
    EXPECT_TRUE(log.Has("[CommThreadFunc] cleanup"));
    EXPECT_TRUE(log.HasLike("[CommThreadFunc]   free CoP #*"));
}

TEST_F(ComPrimitives, LinkDestroyedInItsExecutingCallbackStillSendsTheRequest) {
    const LogCapture log;
    CallbackSpy spy;
    {
        EngineLink link(hMod);
        spy.OnCall([&link](const CallbackCall&) { link.Destroy(); });
        link.Register(spy.Function());
        link.StartRequest(ReadVin());
        EXPECT_TRUE(simulator.WaitFor(1, "in CREQ"));
        EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    }
    EXPECT_FALSE(log.HasLike("*Failed to duplicate UniqueRespTable"));
    EXPECT_TRUE(log.HasLike("[Transmit]   Rx (*"));
}

TEST_F(ComPrimitives, DestructEndsARequestInFlight) {
    EngineLink link(hMod);
    simulator.Command(R"(behaviour {"lost": true})");
    link.StartRequest(ReadVin());
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    CallbackSpy spy;
    link.Register(spy.Function());
    const LogCapture log;
    const std::uint64_t before = TickMs();
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_LT(TickMs() - before, 8000u) << "an attempt alone lasts 10 s";
    EXPECT_EQ(log.CountLike("*did not exit, terminating"), 0u);
    EXPECT_EQ(log.MissingOf({"[PDUDestruct] Called",
                             "[PDUDestruct] Checking * logical links for module 0",
                             "[PDUDestruct] Stopping logical link #* on module #0",
                             "[PDUDestruct] Waiting for Thread handle 0x* to exit (LogicalLink #*)",
                             "[PDUDestruct] Closing Thread handle 0x* (LogicalLink #*)",
                             "[FreeQueue] Deleting CRITICAL_SECTION for queue at 0x*",
                             "[FreePduItem] PDU_IT_UNIQUE_RESP_ID_TABLE",
                             "[PDUDestruct] Closing Mutex handle 0x* (LogicalLink #*)",
                             "[PDUDestruct] Cleaned up * logical links for module 0",
                             "[PDUDestruct] Clearing ModuleDevices array (1 modules present)",
                             "[PDUDestruct] Clearing module slot 0 (Transport: 1, MAC: *)",
                             "[PDUDestruct] ModuleDevices array cleared, count reset to 0",
                             "[PDUDestruct] Returning PDU_STATUS_NOERROR"}),
              "");
}

// The status query of a ComPrimitive keeps the module lock, so these tests have their own process.

class Polled {
public:
    Polled() {
        Pdu();
        Settings{.useSerial = true}.Store();
        EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        hMod = FindModule();
        simulator.Reset();
    }
    ~Polled() { EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR); }

    Simulator simulator;
    UNUM32 hMod = PDU_HANDLE_UNDEF;
};

FRESH_PROCESS_TEST(PolledComPrimitive, FirstHandleOfTheProcessIsOneAndCountsAcrossLinks) {
    Polled library;
    EngineLink first(library.hMod);
    EngineLink second(library.hMod);
    EXPECT_EQ(first.Start(PDU_COPT_UPDATEPARAM), 1u);
    EXPECT_EQ(second.Start(PDU_COPT_UPDATEPARAM), 2u);
    EXPECT_EQ(first.Start(PDU_COPT_UPDATEPARAM), 3u);
}

FRESH_PROCESS_TEST(PolledComPrimitive, IsFoundWithWrongHandlesAndStillGetsItsResult) {
    Polled library;
    EngineLink link(library.hMod);
    library.simulator.HoldNextRequest();
    const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
    const LogCapture log;
    UNUM32 status = 0;
    UNUM32 timestamp = 0;
    UNUM32 extra = 99;
    EXPECT_TRUE(Eventually([&] {
        EXPECT_EQ(Pdu().PDUGetStatus(200, 200, hCoP, &status, &timestamp, &extra),
                  PDU_STATUS_NOERROR);
        return status == PDU_COPST_EXECUTING;
    }));
    EXPECT_EQ(extra, 0u);
    EXPECT_NE(timestamp, 0u);
    EXPECT_TRUE(log.Has("[PDUGetStatus] Returning PDU_STATUS_NOERROR, *pStatusCode=32785"));
    ASSERT_TRUE(library.simulator.WaitFor(1, "in CREQ"));
    library.simulator.AnswerRequest(hCoP, kVinAnswer);
    EXPECT_EQ(link.WaitFor(hCoP).results.size(), 1u);
}

FRESH_PROCESS_TEST(PolledComPrimitive, SuccessfulQueryBlocksOtherThreadsUntilDestruct) {
    Polled library;
    EngineLink link(library.hMod);
    library.simulator.HoldNextRequest();
    const UNUM32 hCoP = link.StartRequest(ReadVin(), PositiveRead());
    UNUM32 status = 0;
    ASSERT_EQ(Pdu().PDUGetStatus(library.hMod, link.hCLL(), hCoP, &status, nullptr, nullptr),
              PDU_STATUS_NOERROR);
    Gate entered;
    Gate answered;
    Thread other([&] {
        entered.Open();
        Pdu().PDUModuleConnect(library.hMod);
        answered.Open();
    });
    ASSERT_TRUE(entered.Wait());
    EXPECT_TRUE(library.simulator.WaitFor(1, "in CREQ"));
    library.simulator.AnswerRequest(hCoP, kVinAnswer);
    EXPECT_EQ(link.WaitFor(hCoP).results.size(), 1u);
    EXPECT_FALSE(answered.Wait(std::chrono::milliseconds(200)));
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_TRUE(answered.Wait());
    EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
}

FRESH_PROCESS_TEST(PolledComPrimitive, UnknownHandleIsRefusedAndHoldsNoLock) {
    Polled library;
    const LogCapture log;
    UNUM32 status = 5;
    UNUM32 extra = 99;
    UNUM32 timestamp = 0;
    EXPECT_EQ(Pdu().PDUGetStatus(library.hMod, 0, 123456, &status, &timestamp, &extra),
              PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(status, 5u);
    EXPECT_EQ(extra, 0u);
    EXPECT_NE(timestamp, 0u);
    EXPECT_TRUE(log.Has("[PDUGetStatus] hCoP not found, Returning PDU_ERR_INVALID_HANDLE"));
    const UNUM32 module = library.hMod;
    EXPECT_TRUE(EndsInTime([module] { Pdu().PDUModuleConnect(module); }));
}

}  // namespace
}  // namespace conformance
