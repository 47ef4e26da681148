// Frames that raw links receive: the thread of each ComPrimitive, and what it delivers.

#include <memory>

#include "conformance/framework/callbacks.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/raw/raw_link.h"

namespace conformance {
namespace {

using RawReceive = RawDongle;

TEST_F(RawReceive, SendRecvFinishesAtOnceAndContinuesReceiving) {
    RawLink link(hMod);
    const UNUM32 hCoP = link.Receive();
    EXPECT_EQ(Sent(1)[0], kReceptionOn);
    FrameOnBus("123 DE AD");
    FrameOnBus("123 BE EF");
    const auto frames = link.TakeFrames(2);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(Hex(frames[0]), "00 00 01 23 DE AD");
    EXPECT_EQ(Hex(frames[1]), "00 00 01 23 BE EF");
    EXPECT_EQ(frames[0].hCoP, hCoP);
    EXPECT_EQ(frames[0].result.unique_id, 0u);
    EXPECT_EQ(frames[0].result.acceptance_id, 0u);
}

TEST_F(RawReceive, EveryStepIsLogged) {
    const LogCapture log;
    {
        RawLink link(hMod);
        const UNUM32 hCoP = StartReception(&link);
        FrameOnBus("123 01");
        link.TakeFrames(1);
        EXPECT_EQ(log.MissingOf({
                      "[CommThreadFunc:*]   PDU_COPT_SENDRECV",
                      "[CommThreadFunc:*]   RAW: Start receive thread",
                      CopLine("[CommThreadFunc:*] Created Thread handle 0x* (CommReceiveFunc) for "
                              "CoP #",
                              hCoP),
                  }),
                  "");
        EXPECT_EQ(log.MissingOf({"[CommReceiveFunc:*] starting thread for CoP",
                                 "[CommReceiveFunc:*]   RAW: Received a packet"}),
                  "");
        EXPECT_EQ(log.CountLike("[CommThreadFunc:*]   Payload:*"), 0u);
        EXPECT_EQ(log.CountLike("[CommThreadFunc] free CoP *"), 0u);
    }
    EXPECT_TRUE(Eventually([&] { return log.HasLike("[CommReceiveFunc:*] stopping"); }));
}

TEST_F(RawReceive, RxFlagMarksIdentifiersFrom4096On) {
    RawLink link(hMod);
    StartReception(&link);
    for (const char* frame : {"7FF 01", "FFF 02", "1000 03", "18DAF110 04"})
        FrameOnBus(frame);
    const auto frames = link.TakeFrames(4);
    ASSERT_EQ(frames.size(), 4u);
    using Flags = std::vector<UNUM8>;
    EXPECT_EQ(frames[0].result.rx_flag, (Flags{0, 0, 0, 0}));
    EXPECT_EQ(frames[1].result.rx_flag, (Flags{0, 0, 0, 0}));
    EXPECT_EQ(frames[2].result.rx_flag, (Flags{0, 0, 1, 0}));
    EXPECT_EQ(frames[3].result.rx_flag, (Flags{0, 0, 1, 0}));
    EXPECT_EQ(Hex(frames[3]), "18 DA F1 10 04");
}

TEST_F(RawReceive, EveryFrameHasTheTag) {
    int tag = 0;
    RawLink link(hMod);
    StartReception(&link, -1, &tag);
    FrameOnBus("123 01");
    EXPECT_EQ(link.TakeFrame().tag, &tag);
}

TEST_F(RawReceive, DataIsCutToWhatThePacketHolds) {
    RawLink link(hMod);
    link.Receive();
    Inject("23010000 0800 0000 010203");                // ends early
    Inject("23010000 C800 0000 0102030405060708");      // count 200
    Inject("23010000 0A00 0000 0102030405060708090A");  // more than a frame can hold
    Inject("23010000 0800 0000");                       // nothing after the fixed fields
    const std::string eight_bytes = "00 00 01 23 01 02 03 04 05 06 07 08";
    EXPECT_EQ(link.TakeHex(4), (std::vector<std::string>{"00 00 01 23 01 02 03", eight_bytes,
                                                         eight_bytes, "00 00 01 23"}));
}

TEST_F(RawReceive, PacketTooShortForItsFixedFieldsIsIgnored) {
    RawLink link(hMod);
    link.Receive();
    const LogCapture log;
    Inject("2301000008 0000");
    Inject("");
    Inject("24010000 0100 0000 55");
    EXPECT_EQ(Hex(link.TakeFrame()), "00 00 01 24 55");
    EXPECT_EQ(log.CountLike("[CommReceiveFunc:*]   RAW: Received a packet"), 3u);
}

TEST_F(RawReceive, FramesArriveInOrderAndNoneIsLost) {
    constexpr std::size_t kFrames = 1000;
    RawLink link(hMod);
    StartReception(&link);
    ASSERT_EQ(simulator.Command("raw burst 1000 123"), "1000");
    const auto frames = link.TakeFrames(kFrames);
    ASSERT_EQ(frames.size(), kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        const std::vector<UNUM8> number = {0, 0, static_cast<UNUM8>(i >> 8), static_cast<UNUM8>(i)};
        const auto& data = frames[i].result.data;
        ASSERT_EQ(data.size(), 12u);
        ASSERT_EQ(std::vector<UNUM8>(data.end() - 4, data.end()), number);
    }
}

// A frame without a receiver stays in the queue.
TEST_F(RawReceive, EarlierFramesAreDeliveredFirst) {
    RawLink link(hMod);
    Inject("23010000 0100 0000 0100000000000000");
    Inject("23010000 0100 0000 0200000000000000");
    ControlData control({}, 1, -1);
    link.Start(PDU_COPT_SENDRECV, {}, control.Data());  // frames may arrive before its final state
    EXPECT_EQ(link.TakeHex(2), (std::vector<std::string>{"00 00 01 23 01", "00 00 01 23 02"}));
}

TEST_F(RawReceive, ZeroAndNegativeReceiveCyclesReceiveWithoutEnd) {
    for (const SNUM32 cycles : {0, -1, -2}) {
        RawLink link(hMod);
        StartReception(&link, cycles);
        for (int i = 0; i < 3; ++i)
            FrameOnBus("123 01");
        EXPECT_EQ(link.TakeFrames(3).size(), 3u) << cycles;
        link.Destroy();
        ASSERT_TRUE(WaitForReception(false));
    }
}

TEST_F(RawReceive, OneOrMoreReceiveCyclesReceiveNothing) {
    RawLink link(hMod);
    const LogCapture log;
    for (const SNUM32 cycles : {1, 2, 100}) {
        simulator.Command("record clear");
        link.Receive(cycles);
        EXPECT_EQ(Sent(2), (std::vector<std::string>{kReceptionOn, kReceptionOff}));
    }
    EXPECT_TRUE(Eventually([&] { return log.CountLike("[CommReceiveFunc:*] stopping") == 3; }));
    EXPECT_EQ(simulator.Command("raw send 123 01"), "0");
}

TEST_F(RawReceive, NextComPrimitiveTakesOver) {
    RawLink link(hMod);
    const UNUM32 first = StartReception(&link);
    FrameOnBus("123 01");
    EXPECT_EQ(link.TakeFrame().hCoP, first);

    const LogCapture log;
    const UNUM32 second = link.Receive();
    EXPECT_EQ(Sent(3), (std::vector<std::string>{kReceptionOn, kReceptionOff, kReceptionOn}));
    EXPECT_EQ(log.MissingOf({"[CommThreadFunc:*]   RAW: Start receive thread",
                             CopLine("[CommThreadFunc]    stop CoP #", first, " thread"),
                             CopLine("[CommThreadFunc:*] Created Thread handle 0x* "
                                     "(CommReceiveFunc) for CoP #",
                                     second)}),
              "");
    ASSERT_TRUE(Eventually([&] { return log.HasLike("[CommReceiveFunc:*] stopping"); }));
    for (int i = 0; i < 5; ++i)
        FrameOnBus("123 02");
    for (const Received& frame : link.TakeFrames(5))
        EXPECT_EQ(frame.hCoP, second);
    EXPECT_EQ(log.CountLike("[CommReceiveFunc:*] stopping"), 1u);
}

TEST_F(RawReceive, NoFrameIsLostWhenTheNextComPrimitiveTakesOver) {
    constexpr int kTakeOvers = 20;
    RawLink link(hMod);
    link.Receive();
    std::size_t injected = 0;
    for (int i = 0; i < kTakeOvers; ++i) {
        for (int j = 0; j < 5; ++j, ++injected)
            Inject("23010000 0100 0000 0100000000000000");
        // Frames may arrive before its final state; TakeFrames takes them all.
        ControlData control({}, 1, -1);
        link.Start(PDU_COPT_SENDRECV, {}, control.Data());
    }
    EXPECT_EQ(link.TakeFrames(injected).size(), injected);
}

TEST_F(RawReceive, CancellingAFinishedOneDoesNotStopItsThread) {
    RawLink link(hMod);
    const UNUM32 hCoP = StartReception(&link);
    const LogCapture log;
    EXPECT_EQ(link.Cancel(hCoP), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has(CopLine("[PDUCancelComPrimitive] CoP id ", hCoP, " already finished")));
    FrameOnBus("123 01");
    EXPECT_EQ(link.TakeFrames(1).size(), 1u);
}

TEST_F(RawReceive, OneCancelledBeforeItsTurnStopsAtOnce) {
    RawLink link(hMod);
    // The worker stays in the callback for the first ComPrimitive until the second is cancelled.
    const auto cancelled = std::make_shared<Gate>();
    CallbackSpy spy;
    spy.OnCall([cancelled](const CallbackCall&) { EXPECT_TRUE(cancelled->Wait()); });
    ASSERT_EQ(link.Register(spy.Function()), PDU_STATUS_NOERROR);
    ControlData control({}, 1, -1);
    link.Start(PDU_COPT_SENDRECV, {}, control.Data());
    ASSERT_TRUE(spy.WaitForCalls(1));
    const UNUM32 hCoP = link.Start(PDU_COPT_SENDRECV, {}, control.Data());
    const LogCapture log;
    EXPECT_EQ(link.Cancel(hCoP), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has(CopLine("[PDUCancelComPrimitive] Aborting CoP id ", hCoP)));
    ASSERT_EQ(link.Register(nullptr), PDU_STATUS_NOERROR);
    cancelled->Open();
    EXPECT_EQ(link.WaitFor(hCoP).FinalState(), PDU_COPST_CANCELLED);
    EXPECT_EQ(Sent(4),
              (std::vector<std::string>{kReceptionOn, kReceptionOff, kReceptionOn, kReceptionOff}));
    EXPECT_FALSE(IsReceptionOn());
}

// This dongle does not count its receivers.
TEST_F(RawReceive, EndOfAnotherLinksReceptionStopsThisOneUntilItStartsAgain) {
    RawLink first(hMod);
    RawLink second(hMod);
    first.Receive();
    second.Receive();
    EXPECT_EQ(Sent(2), (std::vector<std::string>{kReceptionOn, kReceptionOn}));
    first.Destroy();
    EXPECT_TRUE(WaitForReception(false));
    const UNUM32 again = StartReception(&second);
    FrameOnBus("123 01");
    EXPECT_EQ(second.TakeFrame().hCoP, again);
}

// The query keeps the module lock, so this test has its own process.
FRESH_PROCESS_TEST(RawStatus, OfAReceivingComPrimitiveIsFinished) {
    Settings{.useSerial = true}.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    const UNUM32 hMod = FindModule();
    RawLink link(hMod);
    const UNUM32 hCoP = link.Receive();
    UNUM32 state = 0;
    EXPECT_EQ(Pdu().PDUGetStatus(hMod, link.hCLL(), hCoP, &state, nullptr, nullptr),
              PDU_STATUS_NOERROR);
    EXPECT_EQ(state, PDU_COPST_FINISHED);
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
}

TEST_F(RawReceive, ContinuesWhileTheLinkIsDisconnected) {
    RawLink link(hMod);
    StartReception(&link);
    ASSERT_EQ(link.Disconnect(), PDU_STATUS_NOERROR);
    FrameOnBus("123 01");
    EXPECT_EQ(link.TakeFrames(1).size(), 1u);
}

TEST_F(RawReceive, ThreadRunsOnWithoutItsDongleAndEndsWithItsLink) {
    RawLink link(hMod);
    StartReception(&link);
    const LogCapture log;
    simulator.Unplug();
    ASSERT_TRUE(Eventually([&] { return log.HasLike("[SerialTxThreadFunc] Exiting."); }));
    EXPECT_EQ(log.CountLike("[CommReceiveFunc:*] stopping"), 0u);
    link.Destroy();
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    EXPECT_TRUE(log.HasLike("[CommReceiveFunc:*] stopping"));
    simulator.Replug();
}

TEST_F(RawReceive, FramesOfAReturnedDongleAreDelivered) {
    RawLink link(hMod);
    StartReception(&link);
    const LogCapture log;
    simulator.Unplug();
    ASSERT_TRUE(Eventually([&] { return log.HasLike("[SerialTxThreadFunc] Exiting."); }));
    simulator.Replug();
    // Frames sent before the port is synchronised are lost, as on every port.
    EXPECT_TRUE(EventuallyConnected([&] {
        Inject("23010000 0100 0000 0700000000000000");
        const auto event = NextEvent(hMod, link.hCLL());
        return event != nullptr && event->ItemType == PDU_IT_RESULT &&
               Hex(ResultOf(*event).data) == "00 00 01 23 07";
    }));
}

}  // namespace
}  // namespace conformance
