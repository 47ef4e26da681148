// How reception ends with its link and with the library.

#include <atomic>
#include <memory>

#include "conformance/framework/callbacks.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/steadiness.h"
#include "conformance/framework/system.h"
#include "conformance/raw/raw_link.h"

namespace conformance {
namespace {

using RawCleanUp = RawDongle;

bool WorkerHasExited(const LogCapture& log) { return log.Has("[CommThreadFunc] exiting"); }

TEST_F(RawCleanUp, DestroyingTheLinkStopsAndReleasesEveryReceiver) {
    RawLink link(hMod);
    const UNUM32 first = link.Receive();
    const UNUM32 second = StartReception(&link);
    const LogCapture log;
    ASSERT_EQ(link.Destroy(), PDU_STATUS_NOERROR);
    ASSERT_TRUE(Eventually([&] { return WorkerHasExited(log); }));
    EXPECT_EQ(log.MissingOf({
                  "[CommThreadFunc] cleanup",
                  CopLine("[CommThreadFunc]   stop CoP #", first, " thread"),
                  CopLine("[CommThreadFunc]   free CoP #", first),
                  CopLine("[CommThreadFunc]   stop CoP #", second, " thread"),
                  CopLine("[CommThreadFunc]   free CoP #", second),
                  "[CommThreadFunc] exiting",
              }),
              "");
    EXPECT_TRUE(log.HasLike("[CommReceiveFunc:*] stopping"));
    EXPECT_EQ(log.CountLike("*Failed to *"), 0u);
    EXPECT_TRUE(WaitForReception(false));
    EXPECT_EQ(Sent(1)[0], kReceptionOff);
}

TEST_F(RawCleanUp, DestructEndsReceptionWithItsLink) {
    RawLink link(hMod);
    StartReception(&link);
    const LogCapture log;
    EXPECT_TRUE(EndsInTime([] { EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR); }));
    EXPECT_EQ(log.MissingOf({
                  "[PDUDestruct] Stopping logical link #0 on module #0",
                  "[PDUDestruct] Closing Thread handle 0x* (LogicalLink #0)",
                  "[PDUDestruct] Closing Mutex handle 0x* (LogicalLink #0)",
                  "[PDUDestruct] Returning PDU_STATUS_NOERROR",
              }),
              "");
    EXPECT_TRUE(log.HasLike("[CommReceiveFunc:*] stopping"));
    EXPECT_EQ(log.CountLike("*did not exit, terminating"), 0u);
}

TEST_F(RawCleanUp, ManyRawLinksEndTogetherWithTheLibrary) {
    std::vector<std::unique_ptr<RawLink>> links;
    for (int i = 0; i < 50; ++i) {
        links.push_back(std::make_unique<RawLink>(hMod));
        links.back()->Receive();
    }
    const LogCapture log;
    EXPECT_TRUE(EndsInTime([] { EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR); }));
    EXPECT_EQ(log.CountLike("[CommReceiveFunc:*] stopping"), 50u);
    EXPECT_EQ(log.CountLike("*terminating"), 0u);
    EXPECT_EQ(log.CountLike("*Failed to stop thread"), 0u);
}

TEST_F(RawCleanUp, WorksWhileFramesKeepArriving) {
    for (int round = 0; round < 5; ++round) {
        RawLink link(hMod);
        StartReception(&link);
        ASSERT_EQ(simulator.Command("raw burst 100 123"), "100");
        const LogCapture log;
        link.Destroy();
        ASSERT_TRUE(Eventually([&] { return WorkerHasExited(log); }));
        // Otherwise the next round might see what is left of this round's reception.
        ASSERT_TRUE(WaitForReception(false));
    }
}

TEST_F(RawCleanUp, ThreadsAndHandlesDoNotGrowWithTheReceivers) {
    constexpr int kReceivers = 100;
    const auto receive = [&](RawLink* link) {
        for (int i = 0; i < kReceivers; ++i)
            link->Receive();
    };
    ProcessFigures before;
    {
        RawLink warm_up(hMod);
        receive(&warm_up);
    }
    {
        RawLink link(hMod);
        link.Receive();
        before = MeasureProcess();
        receive(&link);
        ExpectSteady("100 receivers on one link", before, MeasureSettled(before));
    }
}

// ---- inside the receive thread's callback ------------------------------------------------------

class RawCallback : public RawDongle {
protected:
    // Runs `action` once, on the receive thread, at the first frame.
    void OnFirstFrame(RawLink* link, std::function<void()> action) {
        spy_.OnCall([this, action = std::move(action), hCLL = link->hCLL()](const CallbackCall&) {
            while (const auto event = NextEvent(hMod, hCLL)) {
                if (event->ItemType == PDU_IT_RESULT) ++frames_;
            }
            if (frames_ == 0 || entered_.exchange(true)) return;
            action();
            done_->Open();
        });
        StartReception(link);
        // Otherwise the worker might take the frame in the callback for the final state, before the
        // receive thread does.
        link->Settle();
        ASSERT_EQ(Pdu().PDURegisterEventCallback(hMod, hCLL_ = link->hCLL(), spy_.Function()),
                  PDU_STATUS_NOERROR);
        FrameOnBus("123 01");
    }

    CallbackSpy spy_;
    UNUM32 hCLL_ = 0;
    std::atomic<std::uint32_t> frames_{0};  // that callbacks have taken
    std::atomic<bool> entered_{false};
    std::shared_ptr<Gate> done_ = std::make_shared<Gate>();
};

TEST_F(RawCallback, LinkMayBeDestroyedInside) {
    RawLink link(hMod);
    const LogCapture log;
    OnFirstFrame(&link, [&] { EXPECT_EQ(link.Destroy(), PDU_STATUS_NOERROR); });
    ASSERT_TRUE(done_->Wait());
    EXPECT_TRUE(Eventually([&] { return WorkerHasExited(log); }));
    EXPECT_TRUE(log.HasLike("[CommReceiveFunc:*] stopping"));
    EXPECT_EQ(log.CountLike("*Failed to stop thread"), 0u);
}

TEST_F(RawCallback, LibraryMayBeDestructedAndConstructedInside) {
    RawLink link(hMod);
    const LogCapture log;
    OnFirstFrame(&link, [] {
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    });
    ASSERT_TRUE(done_->Wait());
    EXPECT_TRUE(Eventually([&] { return log.HasLike("[CommReceiveFunc:*] stopping"); }));
    EXPECT_EQ(log.CountLike("*terminating"), 0u);
    EXPECT_EQ(log.CountLike("*Failed to stop thread"), 0u);
    EXPECT_NE(FindModule(), PDU_HANDLE_UNDEF);
}

TEST_F(RawCallback, ReceiverStartedAfterANewConstructInsideStaysOn) {
    RawLink link(hMod);
    std::unique_ptr<RawLink> next;
    UNUM32 hCoP = 0;
    const LogCapture log;
    OnFirstFrame(&link, [&] {
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        hMod = FindModule();
        next = std::make_unique<RawLink>(hMod);
        hCoP = next->Receive();
        EXPECT_TRUE(
            Eventually([&] { return log.CountLike("[CommReceiveFunc:*] starting*") == 2; }));
    });
    ASSERT_TRUE(done_->Wait());
    EXPECT_TRUE(Eventually([&] { return log.HasLike("[CommReceiveFunc:*] stopping"); }));
    ASSERT_TRUE(WaitForReception(true));
    FrameOnBus("123 02");
    EXPECT_EQ(next->TakeFrame().hCoP, hCoP);
}

TEST_F(RawCallback, LibraryMayBeDestructedInsideAfterTheLinkWasDestroyedThere) {
    RawLink link(hMod);
    const LogCapture log;
    OnFirstFrame(&link, [&] {
        EXPECT_EQ(link.Destroy(), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    });
    ASSERT_TRUE(done_->Wait());
    EXPECT_TRUE(Eventually([&] { return log.HasLike("[CommReceiveFunc:*] stopping"); }));
    EXPECT_EQ(log.CountLike("*terminating"), 0u);
    EXPECT_EQ(log.CountLike("*Failed to stop thread"), 0u);
}

TEST_F(RawCallback, NextReceiverMayBeStartedInside) {
    RawLink link(hMod);
    std::atomic<UNUM32> second{0};
    OnFirstFrame(&link, [&] {
        ControlData control({}, 1, -1);
        second = link.Start(PDU_COPT_SENDRECV, {}, control.Data());
    });
    ASSERT_TRUE(done_->Wait());
    ASSERT_EQ(Pdu().PDURegisterEventCallback(hMod, hCLL_, nullptr), PDU_STATUS_NOERROR);
    link.Settle();  // no running callback is left that would take the frame
    EXPECT_EQ(Sent(3), (std::vector<std::string>{kReceptionOn, kReceptionOff, kReceptionOn}));
    FrameOnBus("123 02");
    EXPECT_EQ(link.TakeFrame().hCoP, second);
}

// Frames that arrive while the callback runs wait.
TEST_F(RawCallback, NoFrameIsLostWhileACallbackRuns) {
    RawLink link(hMod);
    OnFirstFrame(&link, [] {
        Simulator own;  // this thread's connection
        EXPECT_EQ(own.Command("raw burst 20 123"), "20");
        EXPECT_TRUE(own.WaitFor(21, "out RAWC"));
    });
    ASSERT_TRUE(done_->Wait());
    EXPECT_TRUE(Eventually([&] { return frames_ == 21; })) << frames_;
    ASSERT_EQ(Pdu().PDURegisterEventCallback(hMod, hCLL_, nullptr), PDU_STATUS_NOERROR);
}

TEST_F(RawCallback, SuccessorReceivesWhileThePredecessorIsInACallback) {
    RawLink link(hMod);
    Gate leave;
    Gate inside;
    OnFirstFrame(&link, [&] {
        inside.Open();
        EXPECT_TRUE(leave.Wait());
    });
    ASSERT_TRUE(inside.Wait());
    ASSERT_EQ(Pdu().PDURegisterEventCallback(hMod, hCLL_, nullptr), PDU_STATUS_NOERROR);
    const UNUM32 second = link.Receive();
    EXPECT_EQ(Sent(3), (std::vector<std::string>{kReceptionOn, kReceptionOff, kReceptionOn}));
    FrameOnBus("123 02");
    EXPECT_EQ(link.TakeFrame().hCoP, second);
    leave.Open();
    ASSERT_TRUE(done_->Wait());
    FrameOnBus("123 03");
    EXPECT_EQ(link.TakeFrames(1).size(), 1u);
}

// The link is destroyed during a callback that takes longer than a destruct would wait.
TEST_F(RawCallback, MayTakeLongWhileTheLinkEnds) {
    RawLink link(hMod);
    const LogCapture log;
    Gate inside;
    Gate leave;
    OnFirstFrame(&link, [&] {
        inside.Open();
        EXPECT_TRUE(leave.Wait());
    });
    ASSERT_TRUE(inside.Wait());
    link.Destroy();
    ASSERT_TRUE(Eventually([&] { return log.HasLike("[CommThreadFunc]   stop CoP #* thread"); }));
    const std::uint64_t begin = TickMs();
    ASSERT_TRUE(Eventually([&] { return TickMs() >= begin + 2500; }));
    EXPECT_FALSE(WorkerHasExited(log));
    leave.Open();
    EXPECT_TRUE(Eventually([&] { return WorkerHasExited(log); }));
    EXPECT_EQ(log.CountLike("*Failed to stop thread"), 0u);
}

std::atomic<bool> callback_is_stuck{false};

void PDU_CALL StuckCallback(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void*, void*) {
    bool frame = false;
    while (const auto event = NextEvent(hMod, hCLL))
        frame |= event->ItemType == PDU_IT_RESULT;
    if (!frame) return;
    callback_is_stuck.store(true);
    BlockForever();
}

// The receive thread is stuck in the application's callback.
FRESH_PROCESS_TEST(RawTermination, OfAReceiverStuckInACallbackLetsDestructContinue) {
    Settings{.useSerial = true}.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    const UNUM32 hMod = FindModule();
    ASSERT_NE(hMod, PDU_HANDLE_UNDEF);
    Simulator simulator;
    RawLink link(hMod);
    const UNUM32 hCoP = link.Receive();
    link.Settle();  // otherwise the worker would call back and get stuck instead
    ASSERT_EQ(link.Register(StuckCallback), PDU_STATUS_NOERROR);
    ASSERT_TRUE(Eventually([&] { return simulator.Command("raw send 123 01") == "1"; }));
    ASSERT_TRUE(Eventually([] { return callback_is_stuck.load(); }));
    const LogCapture log;
    EXPECT_TRUE(EndsInTime([] { EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR); }));
    EXPECT_EQ(log.MissingOf({
                  CopLine("[CommThreadFunc]   stop CoP #", hCoP, " thread"),
                  "[CommThreadFunc:*]   Failed to stop thread",
                  CopLine("[CommThreadFunc]   free CoP #", hCoP),
                  "[CommThreadFunc] exiting",
                  "[PDUDestruct] Closing Thread handle 0x* (LogicalLink #0)",
                  "[PDUDestruct] Returning PDU_STATUS_NOERROR",
              }),
              "");
    EXPECT_EQ(log.CountLike("[PDUDestruct] Thread 0x* did not exit, terminating"), 0u);
    Settings{.useSerial = true}.Store();
    EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_NE(FindModule(), PDU_HANDLE_UNDEF);
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
}

}  // namespace
}  // namespace conformance
