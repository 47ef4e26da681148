#include "worker/raw_receive.h"

#include <atomic>
#include <optional>

#include "objects/lifecycle.h"
#include "platform/thread.h"
#include "unit/faults/thread_start_fault.h"
#include "unit/worker/worker_link.h"

namespace tarvik::test {
namespace {

constexpr char kReceiver[] = "[CommReceiveFunc]";

class RawReceive : public WorkerLink {
protected:
    void SetUp() override {
        WorkerLink::SetUp();
        link->rawMode = true;
    }
    void TearDown() override {
        while (const Ref<ComPrimitive> cop = link->registry.Take())
            if (cop->has_receive_thread) StopRawReception(link.Get(), cop.Get());
        WorkerLink::TearDown();
    }
    // Registered, as the worker's are.
    Ref<ComPrimitive> MakeReceiver(SNUM32 cycles = -1, std::uint32_t hCoP = kCop) {
        Ref<ComPrimitive> cop = MakeCop(PDU_COPT_SENDRECV, {}, {}, hCoP);
        cop->pCopCtrlData->NumReceiveCycles = cycles;
        EXPECT_TRUE(link->registry.Append(Ref<ComPrimitive>(cop), hCoP));
        return cop;
    }
    void Start(const Ref<ComPrimitive>& cop) { StartRawReception(link.Get(), cop.Get()); }
    void Stop(const Ref<ComPrimitive>& cop) { StopRawReception(link.Get(), cop.Get()); }
    // Also true if the worker has seen it end and closed the thread.
    static bool Ends(const Ref<ComPrimitive>& cop) {
        constexpr auto kLimitMs = static_cast<std::int32_t>(kPatience.count() * 1000);
        return cop->receive_thread == nullptr || OsThreadJoin(cop->receive_thread, kLimitMs);
    }

    static void Arrives(std::uint32_t can_id, const Bytes& data, std::uint32_t type = kTypeRawc,
                        std::uint32_t size = 24) {
        PacketPtr packet = MakePacket(type, size);
        if (size >= 16) {
            packet->SetU32(8, can_id);
            packet->SetU16(12, static_cast<std::uint16_t>(data.size()));
        }
        for (std::size_t i = 0; i < data.size(); ++i)
            packet->Bytes()[16 + i] = data[i];
        ASSERT_TRUE(EnqueueReceivedPacket(&dongle, packet));
    }
    // The receive thread has begun to wait twice from here on.
    static bool WaitsTwice() {
        const std::uint64_t before = link_limit_reads;
        return Eventually([&] { return link_limit_reads >= before + 2; });
    }
    // The next event; waits for it.
    std::string NextEvent() const {
        std::string text;
        Eventually([&] {
            const EventPtr item = link->events.Take();
            if (item != nullptr) text = Describe(*item);
            return item != nullptr;
        });
        return text;
    }
    // The flags of what was sent to the dongle.
    static std::vector<std::uint16_t> Switches() {
        std::vector<std::uint16_t> flags;
        while (const PacketPtr packet = NextSent())
            flags.push_back(packet->U16(14));
        return flags;
    }
    using Flags = std::vector<std::uint16_t>;
};

TEST_F(RawReceive, DeliversIdentifierAndDataOfEveryFrame) {
    Start(MakeReceiver());
    Arrives(0x18DAF110, {1, 2, 3});
    EXPECT_EQ(NextEvent(), "result 0/0 18DAF110010203 rx 00000100");
    Arrives(0x123, {});
    EXPECT_EQ(NextEvent(), "result 0/0 00000123 rx 00000000");
}

TEST_F(RawReceive, NothingIsWrittenAfterTheIdentifierOfAFrameWithoutData) {
    Start(MakeReceiver());
    Arrives(0x18DAF110, {});
    EventPtr event;
    ASSERT_TRUE(Eventually([&] { return (event = link->events.Take()) != nullptr; }));
    EXPECT_EQ(Describe(*event), "result 0/0 18DAF110 rx 00000100");
    const auto& result = *static_cast<PDU_RESULT_DATA*>(event->pData);
    EXPECT_EQ(RequestedSize(result.pDataBytes), 4u);
    EXPECT_EQ(Hex(result.pDataBytes, 16), "18DAF110" + std::string(24, '0'))
        << "a block is zero up to a multiple of 16 bytes";
}

TEST_F(RawReceive, FrameWithoutMemoryForItIsDropped) {
    std::optional<FailingHeap> heap;
    const std::uint32_t refusals = FailingHeap::Refusals();
    on_event = [&] {
        if (!heap) heap.emplace(0, 1);  // of the receive thread: the next frame's bytes
    };
    const Ref<ComPrimitive> cop = MakeReceiver();
    Start(cop);
    for (const std::uint32_t id : {1u, 2u, 3u})
        Arrives(id, {});
    EXPECT_EQ(NextEvent(), "result 0/0 00000001 rx 00000000");
    EXPECT_EQ(NextEvent(), "result 0/0 00000003 rx 00000000");
    Stop(cop);
    EXPECT_EQ(FailingHeap::Refusals(), refusals + 1);
}

TEST_F(RawReceive, IdentifiersFrom4096OnAreFlaggedAsLong) {
    Start(MakeReceiver());
    Arrives(4095, {});
    EXPECT_EQ(NextEvent(), "result 0/0 00000FFF rx 00000000");
    Arrives(4096, {});
    EXPECT_EQ(NextEvent(), "result 0/0 00001000 rx 00000100");
}

TEST_F(RawReceive, EndsBeforeTheFirstFrameWithReceiveCycles) {
    for (const SNUM32 cycles : {1, 2, 100}) {
        const LogCapture log;
        const Ref<ComPrimitive> cop = MakeReceiver(cycles);
        Start(cop);
        EXPECT_TRUE(Ends(cop)) << cycles;
        EXPECT_EQ(ThreadLines(log, kReceiver), (Texts{" starting thread for CoP", " stopping"}));
        EXPECT_EQ(Switches(), (Flags{kRawReceptionOn, kRawReceptionOff}));
        Stop(cop);
        link->registry.Take();
    }
}

TEST_F(RawReceive, GoesOnWithZeroOrNegativeReceiveCycles) {
    std::uint32_t hCoP = kCop;
    for (const SNUM32 cycles : {0, -1, -2}) {
        const Ref<ComPrimitive> cop = MakeReceiver(cycles, ++hCoP);
        Start(cop);
        for (const std::uint32_t id : {1u, 2u}) {
            Arrives(id, {});
            EXPECT_EQ(NextEvent(), "result 0/0 0000000" + std::to_string(id) + " rx 00000000");
        }
        Stop(cop);
    }
}

TEST_F(RawReceive, GoesOnWithoutControlData) {
    const Ref<ComPrimitive> cop = MakeReceiver();
    FreeControlData(std::exchange(cop->pCopCtrlData, nullptr));
    Start(cop);
    Arrives(1, {});
    EXPECT_EQ(NextEvent(), "result 0/0 00000001 rx 00000000");
}

TEST_F(RawReceive, TruncatedFrameIsLoggedAndNotDelivered) {
    const LogCapture log;
    Start(MakeReceiver());
    Arrives(0, {}, kTypeRawc, 12);
    Arrives(7, {});
    EXPECT_EQ(NextEvent(), "result 0/0 00000007 rx 00000000");
    EXPECT_EQ(ThreadLines(log, kReceiver),
              (Texts{" starting thread for CoP", "   RAW: Received a packet",
                     "   RAW: Received a packet"}));
}

TEST_F(RawReceive, OtherPacketsStayInTheQueue) {
    Start(MakeReceiver());
    Arrives(5, {}, kTypeCres);
    Arrives(7, {});
    EXPECT_EQ(NextEvent(), "result 0/0 00000007 rx 00000000");
    const PacketPtr left = TakePacket(&dongle.rx, 0);
    ASSERT_NE(left, nullptr);
    EXPECT_EQ(left->type, kTypeCres);
}

TEST_F(RawReceive, IsSwitchedOnByItsThreadAndOffAtItsEnd) {
    const Ref<ComPrimitive> cop = MakeReceiver();
    Start(cop);
    EXPECT_TRUE(Eventually([&] { return QueuedPackets(dongle.tx) > 0; }));
    EXPECT_EQ(Switches(), Flags{kRawReceptionOn});
    const LogCapture log;
    Stop(cop);
    EXPECT_EQ(Switches(), Flags{kRawReceptionOff});
    EXPECT_TRUE(cop->abort);
    EXPECT_EQ(ThreadLines(log), Texts{"   stop CoP #77 thread"});
    EXPECT_EQ(ThreadLines(log, kReceiver), Texts{" stopping"});
    Stop(cop);
    EXPECT_EQ(Switches(), Flags{}) << "sent once";
}

TEST_F(RawReceive, EndsWhenItsLinkDoes) {
    const Ref<ComPrimitive> cop = MakeReceiver();
    Start(cop);
    link->running = false;
    EXPECT_TRUE(Ends(cop));
}

TEST_F(RawReceive, ThreadOfTheSuccessorTakesOver) {
    const Ref<ComPrimitive> first = MakeReceiver(-1, 77);
    const Ref<ComPrimitive> second = MakeReceiver(-1, 78);
    Start(first);
    EXPECT_FALSE(first->abort);
    const LogCapture log;
    Start(second);
    EXPECT_TRUE(first->abort);
    EXPECT_FALSE(second->abort);
    EXPECT_TRUE(Ends(first));
    const Texts lines = ThreadLines(log);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "   RAW: Start receive thread");
    EXPECT_EQ(lines[1], "    stop CoP #77 thread");
    EXPECT_TRUE(lines[2].starts_with(" Created Thread handle 0x"));
    EXPECT_TRUE(lines[2].ends_with(" (CommReceiveFunc) for CoP #78"));
    Stop(second);
    EXPECT_EQ(Switches(),
              (Flags{kRawReceptionOn, kRawReceptionOff, kRawReceptionOn, kRawReceptionOff}));
}

TEST_F(RawReceive, EndedThreadsAreClosedByTheNextStart) {
    const Ref<ComPrimitive> first = MakeReceiver(1, 77);
    Start(first);
    EXPECT_TRUE(Ends(first));
    EXPECT_NE(first->receive_thread, nullptr);
    const Ref<ComPrimitive> second = MakeReceiver(-1, 78);
    Start(second);
    EXPECT_EQ(first->receive_thread, nullptr);
    EXPECT_TRUE(first->has_receive_thread);
    EXPECT_NE(second->receive_thread, nullptr);
    Stop(first);  // returns although there is no thread
}

TEST_F(RawReceive, ThreadThatCannotBeStartedIsAnError) {
    const Ref<ComPrimitive> cop = MakeReceiver();
    const LogCapture log;
    const MemoryUse before = LiveMemory();
    {
        const ThreadStartFault refused("Tarvik CommReceiveFunc", 11);
        Start(cop);
    }
    EXPECT_EQ(Events(), Texts{"error 257"});
    EXPECT_TRUE(LiveMemory() == before);
    EXPECT_FALSE(cop->has_receive_thread);
    EXPECT_EQ(cop->receive_thread, nullptr);
    EXPECT_FALSE(link->raw_receive.Take());
    EXPECT_EQ(Switches(), Flags{});
    EXPECT_TRUE(log.Mentions("Created Thread handle 0x"));
}

TEST_F(RawReceive, WithoutMemoryForItsThreadIsAnError) {
    const Ref<ComPrimitive> cop = MakeReceiver();
    {
        const FailingHeap heap(0, 1);
        Start(cop);
    }
    EXPECT_EQ(Events(), Texts{"error 257"});
    EXPECT_FALSE(cop->has_receive_thread);
}

// Its successor could not stop it.
TEST_F(RawReceive, ThreadThatCannotBeFiledStopsWithAnError) {
    link->raw_receive.Discard();
    const Ref<ComPrimitive> cop = MakeReceiver();
    Start(cop);
    EXPECT_EQ(NextEvent(), "error 257");
    EXPECT_TRUE(cop->has_receive_thread);
    EXPECT_TRUE(cop->abort);
    EXPECT_TRUE(Ends(cop));
}

TEST_F(RawReceive, DongleWithoutQueuesReceivesNothing) {
    link->device = nullptr;
    const Ref<ComPrimitive> cop = MakeReceiver();
    const LogCapture log;
    Start(cop);
    EXPECT_TRUE(WaitsTwice());
    Stop(cop);
    EXPECT_EQ(ThreadLines(log, kReceiver), (Texts{" starting thread for CoP", " stopping"}));
}

// A search would return at once, and the thread would do nothing else.
TEST_F(RawReceive, DongleThatIsAwayIsNotSearched) {
    for (const bool has_queue : {true, false}) {
        dongle.available = !has_queue;
        if (!has_queue) FreeQueue(&dongle.rx);
        const Ref<ComPrimitive> cop = MakeReceiver();
        const std::uint64_t searches = worker_limit_reads;
        Start(cop);
        EXPECT_TRUE(WaitsTwice());
        EXPECT_EQ(worker_limit_reads, searches);
        Stop(cop);
        link->registry.Take();
    }
}

// Its thread is inside a callback that the test ends.
class BusyRawReceive : public RawReceive {
protected:
    void SetUp() override {
        RawReceive::SetUp();
        on_event = [] {
            entered = true;
            while (!released)
                SleepMs(1);
        };
        cop = MakeReceiver();
        Start(cop);
        Arrives(1, {});
        ASSERT_TRUE(Eventually([&] { return entered.load(); }));
        Switches();
    }
    void TearDown() override {
        released = true;
        if (cop->receive_thread != nullptr) {
            EXPECT_TRUE(Ends(cop));
        }
        RawReceive::TearDown();
    }
    Ref<ComPrimitive> cop;
    static inline std::atomic<bool> entered;
    static inline std::atomic<bool> released;

public:
    BusyRawReceive() {
        entered = false;
        released = false;
    }
};

TEST_F(BusyRawReceive, IsSwitchedOffForItBeforeItsSuccessorSwitchesOn) {
    const Ref<ComPrimitive> next = MakeReceiver(-1, 78);
    Start(next);
    EXPECT_TRUE(Eventually([&] { return QueuedPackets(dongle.tx) == 2; }));
    EXPECT_EQ(Switches(), (Flags{kRawReceptionOff, kRawReceptionOn}));
    released = true;
    EXPECT_TRUE(Ends(cop));
    EXPECT_EQ(Switches(), Flags{});
}

TEST_F(BusyRawReceive, IsWaitedForWithoutADestruct) {
    const LogCapture log;
    std::atomic<bool> stopped{false};
    Thread stopper([&] {
        Stop(cop);
        stopped = true;
    });
    EXPECT_TRUE(Eventually([&] { return cop->abort.load(); }));
    EXPECT_FALSE(stopped);
    released = true;
    stopper.Join();
    EXPECT_FALSE(log.Mentions("Failed to stop thread"));
    EXPECT_EQ(Switches(), Flags{kRawReceptionOff});
}

TEST_F(BusyRawReceive, IsWaitedForBeforeItsThreadHasAnId) {
    cop->receive_thread_id = 0;
    Thread stopper([&] { Stop(cop); });
    EXPECT_TRUE(Eventually([&] { return cop->abort.load(); }));
    released = true;
    stopper.Join();
    EXPECT_TRUE(OsThreadJoin(cop->receive_thread, 0));
}

TEST_F(BusyRawReceive, IsTerminatedWhenADestructsTimeIsUp) {
    const LogCapture log;
    const RecordedTermination termination;
    link->destructing_thread = OsCurrentThreadId();
    link->stop_deadline_ms = TickMs();
    Stop(cop);
    EXPECT_TRUE(HasThreadLine(log, "   Failed to stop thread"));
    EXPECT_EQ(Switches(), Flags{kRawReceptionOff});
    EXPECT_EQ(RecordedTermination::Last(), cop->receive_thread);
}

TEST_F(RawReceive, CallsOfATerminatedThreadAreNotWaitedFor) {
    const RecordedTermination termination;
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
    on_event = [&] {
        const ApiCall call;
        entered = true;
        Eventually([&] { return released.load(); });
    };
    const Ref<ComPrimitive> cop = MakeReceiver();
    Start(cop);
    Arrives(1, {});
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    // Two waits, for the two generations of calls.
    EXPECT_FALSE(WaitForOtherApiCalls(0) && WaitForOtherApiCalls(0));
    link->destructing_thread = OsCurrentThreadId();
    link->stop_deadline_ms = TickMs();
    Stop(cop);
    EXPECT_TRUE(WaitForOtherApiCalls(0) && WaitForOtherApiCalls(0));
    released = true;
    EXPECT_TRUE(Ends(cop));
    EXPECT_TRUE(WaitForOtherApiCalls(0) && WaitForOtherApiCalls(0));
}

// As a thread that is terminated while it sends leaves it.
TEST_F(BusyRawReceive, ReceptionMutexThatItsThreadLeftOwnedDoesNotHoldUpTheWorker) {
    const RecordedTermination termination;
    ASSERT_NE(OsMutexLock(link->reception_mutex, 0), MutexWait::kTimeout);
    link->destructing_thread = 1;
    link->stop_deadline_ms = TickMs();
    std::atomic<bool> stopped{false};
    Thread stopper([&] {
        Stop(cop);
        stopped = true;
    });
    EXPECT_TRUE(Eventually([&] { return stopped.load(); }));
    OsMutexUnlock(link->reception_mutex);
    stopper.Join();
    EXPECT_EQ(Switches(), Flags{});
}

TEST_F(BusyRawReceive, IsNotWaitedForWhenItDestructsTheLibrary) {
    const LogCapture log;
    link->destructing_thread = cop->receive_thread_id.load();
    link->stop_deadline_ms = 0;
    Stop(cop);
    EXPECT_FALSE(log.Mentions("Failed to stop thread"));
    EXPECT_EQ(Switches(), Flags{kRawReceptionOff});
    EXPECT_FALSE(OsThreadJoin(cop->receive_thread, 0));
}

class TimedRawReceive : public RawReceive {};

TEST_F(TimedRawReceive, HasTheWholeTimeThatADestructLeaves) {
    const Ref<ComPrimitive> cop = MakeReceiver();
    std::atomic<bool> entered{false};
    std::atomic<bool> released{false};
    FakeTick tick(1000);
    on_event = [&] {
        entered = true;
        while (!released)
            SleepMs(1);
    };
    Start(cop);
    Arrives(1, {});
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    link->stop_deadline_ms = 1100;
    link->destructing_thread = OsCurrentThreadId();
    tick.Advance(99);
    const LogCapture log;
    Thread stopper([&] { Stop(cop); });
    const std::uint64_t reads = tick.Reads();
    EXPECT_TRUE(Eventually([&] { return tick.Reads() > reads + 3; }));
    EXPECT_FALSE(log.Mentions("Failed to stop thread"));
    tick.Advance(1);
    EXPECT_TRUE(Eventually([&] { return log.Mentions("Failed to stop thread"); }));
    stopper.Join();
    released = true;
    EXPECT_TRUE(Ends(cop));
}

}  // namespace
}  // namespace tarvik::test
