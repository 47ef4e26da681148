#include "worker/stop_links.h"

#include <atomic>

#include "unit/faults/thread_start_fault.h"
#include "unit/objects/fake_modules.h"
#include "unit/worker/worker_link.h"

namespace tarvik::test {
namespace {

class StopLinks : public FakeModules {
protected:
    void SetUp() override {
        FakeModules::SetUp();
        on_event = nullptr;
        ASSERT_EQ(Scan(), Handles{0});
    }
    void TearDown() override {
        FakeModules::TearDown();
        on_event = nullptr;
    }
    static LinkRef Create() {
        std::uint32_t hCLL = PDU_HANDLE_UNDEF;
        EXPECT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr),
                  PDU_STATUS_NOERROR);
        EXPECT_EQ(PDUConnect(0, hCLL), PDU_STATUS_NOERROR);
        EXPECT_EQ(PDURegisterEventCallback(0, hCLL, OnEvent), PDU_STATUS_NOERROR);
        return FindLink(0, hCLL);
    }
    static void StartUpdate(const LinkRef& link) {
        EXPECT_EQ(PDUStartComPrimitive(0, link->hCLL, PDU_COPT_UPDATEPARAM, 0, nullptr, nullptr,
                                       nullptr, nullptr),
                  PDU_STATUS_NOERROR);
    }
    // What the calls log, with handles left out.
    static Texts Stop() {
        const LogCapture log;
        StopAllLinks();
        Texts lines;
        for (std::string line : log.Lines()) {
            if (!line.starts_with("[PDUDestruct] ")) continue;
            const std::size_t handle = line.find("0x");
            if (handle != std::string::npos) {
                line.erase(handle, line.find(' ', handle) - handle);
            }
            lines.push_back(line.substr(sizeof "[PDUDestruct] " - 1));
        }
        return lines;
    }

    static inline std::function<void(std::uint32_t hCLL)> on_event;
    static void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32, UNUM32 hCLL, void*, void*) {
        if (on_event) on_event(hCLL);
    }
};

TEST_F(StopLinks, EndsEveryLinkOfAModule) {
    Create();
    Create();
    EXPECT_EQ(
        Stop(),
        (Texts{"Checking 2 logical links for module 0", "Stopping logical link #0 on module #0",
               "Waiting for Thread handle  to exit (LogicalLink #0)",
               "Closing Thread handle  (LogicalLink #0)", "Closing Mutex handle  (LogicalLink #0)",
               "Stopping logical link #1 on module #0",
               "Waiting for Thread handle  to exit (LogicalLink #1)",
               "Closing Thread handle  (LogicalLink #1)", "Closing Mutex handle  (LogicalLink #1)",
               "Cleaned up 2 logical links for module 0"}));
    EXPECT_EQ(ModuleDevices->slots[0].links, nullptr);
    EXPECT_EQ(ModuleDevices->slots[0].link_count, 0u);
}

TEST_F(StopLinks, MutexOfALinkIsClosedAfterItsQueues) {
    Create();
    const LogCapture log;
    StopAllLinks();
    const std::string text = log.Text();
    const std::size_t queue = text.rfind("[FreeQueue] Deleting CRITICAL_SECTION");
    ASSERT_NE(queue, std::string::npos);
    const std::size_t mutex = text.find("[PDUDestruct] Closing Mutex");
    ASSERT_NE(mutex, std::string::npos);
    EXPECT_LT(queue, mutex);
}

TEST_F(StopLinks, ModuleWithoutLinksIsNotChecked) { EXPECT_EQ(Stop(), Texts{}); }

// The worker is inside a callback, which returns only after the links have been stopped.
TEST_F(StopLinks, DestroyedLinkIsSkipped) {
    const LimitsScope scope;
    worker_limits.destroyed_end_ms = 1;
    const RecordedTermination termination;
    const LinkRef destroyed = Create();
    Create();
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
    on_event = [&](std::uint32_t hCLL) {
        if (hCLL != 0) return;
        entered = true;
        while (!released)
            SleepMs(1);
    };
    StartUpdate(destroyed);
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    EXPECT_EQ(PDUDestroyComLogicalLink(0, 0), PDU_STATUS_NOERROR);
    const Texts lines = Stop();
    EXPECT_FALSE(OsThreadJoin(destroyed->thread, 0));
    EXPECT_FALSE(destroyed->may_exchange);
    EXPECT_EQ(RecordedTermination::Last(), nullptr);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[0], "Checking 2 logical links for module 0");
    EXPECT_EQ(lines[1], "Stopping logical link #1 on module #0");
    EXPECT_EQ(lines[5], "Cleaned up 1 logical links for module 0");
    released = true;
    EXPECT_TRUE(Eventually([&] { return OsThreadJoin(destroyed->thread, 100); }));
}

// Its worker, which has destroyed it in a callback, still carries out its ComPrimitive.
TEST_F(StopLinks, DestroyedLinkIsDetachedAfterTheEndOfItsWorker) {
    const LinkRef destroyed = Create();
    std::atomic<bool> entered{false};
    std::atomic<bool> was_detached{true};
    on_event = [&](std::uint32_t) {
        EXPECT_EQ(PDUDestroyComLogicalLink(0, 0), PDU_STATUS_NOERROR);
        entered = true;
        EXPECT_TRUE(Eventually([&] { return !destroyed->may_exchange; })) << "no longer";
        was_detached = destroyed->detached.load();
    };
    StartUpdate(destroyed);
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    Stop();
    EXPECT_FALSE(was_detached);
    EXPECT_TRUE(destroyed->detached);
    EXPECT_TRUE(OsThreadJoin(destroyed->thread, 0));
}

TEST_F(StopLinks, DestroyedLinkIsReleasedByTheLastThatHoldsIt) {
    const MemoryUse before = LiveMemory();
    EXPECT_EQ(PDUDestroyComLogicalLink(0, Create()->hCLL), PDU_STATUS_NOERROR);
    Stop();
    EXPECT_TRUE(Eventually([&] { return LiveMemory() == before; }));
}

TEST_F(StopLinks, DestroyedLinksAloneAreNotCounted) {
    Create();
    EXPECT_EQ(PDUDestroyComLogicalLink(0, 0), PDU_STATUS_NOERROR);
    EXPECT_EQ(Stop(), Texts{"Checking 1 logical links for module 0"});
}

TEST_F(StopLinks, AsksEveryWorkerToStopBeforeItWaitsForTheFirst) {
    const LinkRef first = Create();
    const LinkRef second = Create();
    std::atomic<bool> entered{false};
    std::atomic<bool> in_time{false};
    on_event = [&](std::uint32_t hCLL) {
        if (hCLL != 0) return;
        entered = true;
        in_time = Eventually([&] { return !second->running; });
    };
    StartUpdate(first);
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    const LimitsScope scope;
    worker_limits.worker_stop_ms = 60'000;
    Stop();
    EXPECT_TRUE(in_time);
}

TEST_F(StopLinks, SetsTheDestructingThreadAndTheDeadlineOfReceiveThreads) {
    const LimitsScope scope;
    worker_limits.receiver_stop_ms = 1'234;
    const LinkRef link = Create();
    const FakeTick tick(10'000);
    Stop();
    EXPECT_EQ(link->destructing_thread, OsCurrentThreadId());
    EXPECT_EQ(link->stop_deadline_ms, 11'234u);
    EXPECT_FALSE(link->running);
}

// The log of the mutex belongs to the last holder; here that is the test, which logs nothing.
TEST_F(StopLinks, LinkThatSomebodyHoldsIsLoggedAtOnceAndReleasedLater) {
    LinkRef link = Create();
    const Texts lines = Stop();
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[4], "Closing Mutex handle  (LogicalLink #0)");
    EXPECT_TRUE(link->IsOnlyReference());
    const LogCapture log;
    link.Reset();
    EXPECT_FALSE(log.Mentions("Closing Mutex"));
}

TEST_F(StopLinks, WorkerThatDoesNotEndInTimeIsTerminated) {
    const LimitsScope scope;
    const RecordedTermination termination;
    worker_limits.worker_stop_ms = 1;
    LinkRef link = Create();
    static std::atomic<bool> entered;
    static std::atomic<bool> released;
    entered = false;
    released = false;
    on_event = [](std::uint32_t) {
        entered = true;
        while (!released)
            SleepMs(1);
    };
    StartUpdate(link);
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    const Texts lines = Stop();
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines[2], "Waiting for Thread handle  to exit (LogicalLink #0)");
    EXPECT_EQ(lines[3], "Thread  for link #0 did not exit, terminating");
    EXPECT_EQ(lines[4], "Closing Thread handle  (LogicalLink #0)");
    EXPECT_EQ(lines[5], "Closing Mutex handle  (LogicalLink #0)");
    EXPECT_EQ(RecordedTermination::Last(), link->thread);
    released = true;
    EXPECT_TRUE(Eventually([&] { return OsThreadJoin(link->thread, 100); }));
}

TEST_F(StopLinks, WorkerThatStopsTheLinksIsNotWaitedFor) {
    LinkRef link = Create();
    std::atomic<bool> done{false};
    Texts lines;
    on_event = [&](std::uint32_t) {
        lines = Stop();
        done = true;
    };
    StartUpdate(link);
    ASSERT_TRUE(Eventually([&] { return done.load(); }));
    EXPECT_EQ(lines, (Texts{"Checking 1 logical links for module 0",
                            "Stopping logical link #0 on module #0",
                            "Closing Mutex handle  (LogicalLink #0)",
                            "Cleaned up 1 logical links for module 0"}));
    EXPECT_TRUE(Eventually([&] { return OsThreadJoin(link->thread, 100); }));
}

// What a worker does after its link was stopped reaches neither the application nor the dongle.
TEST_F(StopLinks, WorkerThatIsLeftBehindIsDetached) {
    const LimitsScope scope;
    const RecordedTermination termination;
    worker_limits.worker_stop_ms = 1;
    const LinkRef link = Create();
    static std::atomic<int> calls;
    calls = 0;
    std::atomic<bool> released{false};
    on_event = [&](std::uint32_t) {
        ++calls;
        while (!released)
            SleepMs(1);
    };
    EXPECT_EQ(PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, OnEvent),
              PDU_STATUS_NOERROR);
    // Its end is a second event, for which the link's own callback is no longer asked.
    EXPECT_EQ(PDUStartComPrimitive(0, link->hCLL, PDU_COPT_STARTCOMM, 0, nullptr, nullptr, nullptr,
                                   nullptr),
              PDU_STATUS_NOERROR);
    ASSERT_TRUE(Eventually([&] { return calls == 1; }));
    Stop();
    DeviceQueues dongle;
    link->device = &dongle;
    EXPECT_EQ(link->Device(), nullptr);
    released = true;
    EXPECT_TRUE(Eventually([&] { return OsThreadJoin(link->thread, 100); }));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr),
              PDU_STATUS_NOERROR);
}

// A callback that is stuck inside a call of the API is not waited for again.
TEST_F(StopLinks, CallsOfAWorkerThatWasGivenUpDoNotCount) {
    const LimitsScope scope;
    const RecordedTermination termination;
    worker_limits.worker_stop_ms = 1;
    const LinkRef link = Create();
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
    on_event = [&](std::uint32_t) {
        const ApiCall call;
        entered = true;
        while (!released)
            SleepMs(1);
    };
    StartUpdate(link);
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    // Two waits, for the two generations of calls: one of them is the call's.
    EXPECT_FALSE(WaitForOtherApiCalls(0) && WaitForOtherApiCalls(0));
    Stop();
    EXPECT_TRUE(WaitForOtherApiCalls(0));
    EXPECT_TRUE(WaitForOtherApiCalls(0));
    released = true;
    EXPECT_TRUE(Eventually([&] { return OsThreadJoin(link->thread, 100); }));
    EXPECT_TRUE(WaitForOtherApiCalls(0));
    EXPECT_TRUE(WaitForOtherApiCalls(0));
}

// Otherwise nobody would wait for the call in which it stops the links.
TEST_F(StopLinks, ReceiveThreadThatStopsTheLinksIsNotGivenUp) {
    const LimitsScope scope;
    const RecordedTermination termination;
    worker_limits.worker_stop_ms = 1;
    const LinkRef link = Create();
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
    on_event = [&](std::uint32_t) {
        entered = true;
        while (!released)
            SleepMs(1);
    };
    StartUpdate(link);
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    const Ref<ComPrimitive> cop = MakeCounted<ComPrimitive>();
    ASSERT_TRUE(link->registry.Append(Ref<ComPrimitive>(cop), 1000));
    std::atomic<bool> stopped{false};
    std::atomic<bool> seen{false};
    Thread receiver([&] {
        const CountThreadCalls count(&cop->receiver_calls);
        cop->receive_thread_id = OsCurrentThreadId();
        const ApiCall call;
        StopAllLinks();
        stopped = true;
        Eventually([&] { return seen.load(); });
    });
    EXPECT_TRUE(Eventually([&] { return stopped.load(); }));
    EXPECT_EQ(RecordedTermination::Last(), link->thread);
    EXPECT_FALSE(WaitForOtherApiCalls(0) && WaitForOtherApiCalls(0));
    seen = true;
    receiver.Join();
    EXPECT_TRUE(WaitForOtherApiCalls(0));
    EXPECT_TRUE(WaitForOtherApiCalls(0));
    released = true;
    EXPECT_TRUE(Eventually([&] { return OsThreadJoin(link->thread, 100); }));
}

}  // namespace
}  // namespace tarvik::test
