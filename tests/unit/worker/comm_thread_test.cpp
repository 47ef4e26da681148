#include "worker/comm_thread.h"

#include <atomic>

#include "unit/faults/thread_start_fault.h"
#include "unit/test_system.h"
#include "unit/worker/worker_link.h"

namespace tarvik::test {
namespace {

constexpr char kWorker[] = "Tarvik CommThreadFunc";

class CommThread : public WorkerLink {
protected:
    void TearDown() override {
        End();
        WorkerLink::TearDown();
    }
    void Begin() { ASSERT_TRUE(StartWorker("Test", link.Get())); }
    void End() {
        link->running = false;
        link->pending.Wake();
        if (link->thread != nullptr) {
            EXPECT_TRUE(
                OsThreadJoin(link->thread, static_cast<std::int32_t>(kPatience.count() * 1000)));
        }
    }
    void Queue(const Ref<ComPrimitive>& cop) {
        ASSERT_TRUE(link->registry.Append(Ref<ComPrimitive>(cop), cop->hCoP));
        ASSERT_TRUE(link->pending.Append(Ref<ComPrimitive>(cop), cop->hCoP));
    }
    // Executes this one from its start to its release.
    void Execute(const Ref<ComPrimitive>& cop) {
        const LogCapture log;
        Queue(cop);
        if (link->thread == nullptr) Begin();
        const std::string done = "[CommThreadFunc] free CoP #" + std::to_string(cop->hCoP);
        EXPECT_TRUE(Eventually([&] { return log.Has(done); }));
        // The queue's lock orders what the worker wrote before what the test reads.
        EXPECT_TRUE(Eventually(
            [&] { return !link->registry.Visit(cop->hCoP, [](const ComPrimitive&) {}); }));
    }
    Texts EventsOf(std::uint32_t type) {
        Execute(MakeCop(type));
        return Events();
    }
    static std::string NextPacket() {
        const PacketPtr packet = NextSent();
        return packet == nullptr ? "" : Hex(packet->Bytes(), packet->length);
    }
};

TEST_F(CommThread, StartCommStartsTheCommunicationOfTheLink) {
    EXPECT_EQ(EventsOf(PDU_COPT_STARTCOMM), (Texts{"status 8012", "link 8052"}));
    EXPECT_EQ(link->state, PDU_CLLST_COMM_STARTED);
}

TEST_F(CommThread, StopCommPutsTheLinkBackOnline) {
    EXPECT_EQ(EventsOf(PDU_COPT_STOPCOMM), (Texts{"status 8012", "link 8051"}));
    EXPECT_EQ(link->state, PDU_CLLST_ONLINE);
}

TEST_F(CommThread, ParameterUpdatesOnlyFinish) {
    EXPECT_EQ(EventsOf(PDU_COPT_UPDATEPARAM), Texts{"status 8012"});
    EXPECT_EQ(EventsOf(PDU_COPT_RESTORE_PARAM), Texts{"status 8012"});
    EXPECT_EQ(link->state, PDU_CLLST_OFFLINE);
    EXPECT_EQ(NextPacket(), "");
}

TEST_F(CommThread, OtherTypesAreReleasedWithoutAnItem) {
    EXPECT_EQ(EventsOf(PDU_COPT_DELAY), Texts{});
    EXPECT_EQ(EventsOf(0), Texts{});
    EXPECT_EQ(EventsOf(0x8007), Texts{});
}

TEST_F(CommThread, SendRecvMakesAnExchange) {
    EXPECT_EQ(EventsOf(PDU_COPT_SENDRECV), (Texts{"status 8011", "error 257", "status 8012"}));
}

TEST_F(CommThread, TesterPresentIsSentWithItsPeriodInMilliseconds) {
    SetNumber(kCpTesterPresentTime, 2'000'999);
    SetBytes(kCpTesterPresentMessage, {0x3E, 0x80});
    const LogCapture log;
    Execute(MakeCop(PDU_COPT_STARTCOMM));
    EXPECT_EQ(NextPacket(),
              "52505354"
              "12000000"
              "D0070000"
              "00070000"
              "3E80");
    EXPECT_TRUE(HasThreadLine(log, "   [CoP#77] Enable TesterPresent with 2 byte every 2000 ms"));
}

TEST_F(CommThread, TesterPresentHasOneTo32Bytes) {
    const auto packet_size_for = [&](std::size_t bytes) -> std::size_t {
        SetBytes(kCpTesterPresentMessage, Bytes(bytes, 0x3E));
        Execute(MakeCop(PDU_COPT_STARTCOMM));
        return NextPacket().size() / 2;
    };
    EXPECT_EQ(packet_size_for(0), 0u);
    EXPECT_EQ(packet_size_for(1), 17u);
    EXPECT_EQ(packet_size_for(32), 48u);
    EXPECT_EQ(packet_size_for(33), 0u);
}

TEST_F(CommThread, TesterPresentThatIsNotSentIsNotLogged) {
    SetBytes(kCpTesterPresentMessage, Bytes(33, 0x3E));
    const LogCapture log;
    Execute(MakeCop(PDU_COPT_STARTCOMM));
    EXPECT_FALSE(log.Mentions("TesterPresent"));
}

TEST_F(CommThread, TesterPresentFollowsTheItems) {
    SetBytes(kCpTesterPresentMessage, {0x3E});
    std::atomic<std::uint64_t> sent_before{0};
    on_event = [&] { sent_before += QueuedPackets(dongle.tx); };
    Execute(MakeCop(PDU_COPT_STARTCOMM));
    EXPECT_EQ(sent_before, 0u);
    EXPECT_NE(NextPacket(), "");
}

TEST_F(CommThread, StopCommSwitchesTesterPresentOff) {
    SetNumber(kCpTesterPresentTime, 2'000'000);
    SetBytes(kCpTesterPresentMessage, {0x3E});
    const LogCapture log;
    Execute(MakeCop(PDU_COPT_STOPCOMM));
    EXPECT_EQ(NextPacket(),
              "52505354"
              "10000000"
              "00000000"
              "00070000");
    EXPECT_TRUE(HasThreadLine(log, "   [CoP#77] Disable TesterPresent"));
}

TEST_F(CommThread, WithoutADongleSendsNoTesterPresent) {
    SetBytes(kCpTesterPresentMessage, {0x3E});
    link->device = nullptr;
    EXPECT_EQ(EventsOf(PDU_COPT_STARTCOMM), (Texts{"status 8012", "link 8052"}));
    EXPECT_EQ(EventsOf(PDU_COPT_STOPCOMM), (Texts{"status 8012", "link 8051"}));
}

TEST_F(CommThread, StartCommOfARawLinkSendsAFrameAndReportsNothing) {
    link->rawMode = true;
    SetBytes(kCpTesterPresentMessage, {0x3E});
    Execute(MakeCop(PDU_COPT_STARTCOMM, {0, 0, 1, 0x23, 0x55}));
    EXPECT_EQ(Events(), Texts{});
    const PacketPtr packet = NextSent();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->type, kTypeRawc);
    EXPECT_EQ(NextPacket(), "");
}

TEST_F(CommThread, ComPrimitiveHasTheLinksTagFromHereOn) {
    const Ref<ComPrimitive> cop = MakeCop(PDU_COPT_UPDATEPARAM);
    EXPECT_EQ(cop->CllTag, nullptr);
    Execute(cop);
    EXPECT_EQ(cop->CllTag, &link_tag);
}

TEST_F(CommThread, TakesComPrimitivesOneAfterTheOtherInOrder) {
    const LogCapture log;
    for (std::uint32_t hCoP = 1; hCoP <= 20; ++hCoP)
        Queue(MakeCop(PDU_COPT_UPDATEPARAM, {}, {}, hCoP));
    Execute(MakeCop(PDU_COPT_UPDATEPARAM, {}, {}, 21));
    Texts freed;
    Texts expected;
    for (const std::string& line : log.Lines()) {
        if (line.starts_with("[CommThreadFunc] free CoP")) freed.push_back(line);
    }
    for (std::uint32_t hCoP = 1; hCoP <= 21; ++hCoP)
        expected.push_back("[CommThreadFunc] free CoP #" + std::to_string(hCoP));
    EXPECT_EQ(freed, expected);
}

TEST_F(CommThread, ExecutedOneIsTracedAndLeavesTheRegistry) {
    const Ref<ComPrimitive> cop = MakeCop(PDU_COPT_UPDATEPARAM);
    TraceCapture trace;
    Execute(cop);
    End();
    trace.Stop();
    EXPECT_FALSE(link->registry.First());
    EXPECT_TRUE(cop->IsOnlyReference());
    EXPECT_TRUE(trace.Mentions("\"hCoP\":77")) << "its release";
    EXPECT_EQ(trace.Count("cop_free"), 1u);
}

TEST_F(CommThread, ComPrimitiveThatIsNotRegisteredIsLogged) {
    const LogCapture log;
    ASSERT_TRUE(link->pending.Append(MakeCop(PDU_COPT_UPDATEPARAM), kCop));
    Begin();
    EXPECT_TRUE(
        Eventually([&] { return HasThreadLine(log, " Failed to dequeue id 77 from CoP queue"); }));
}

TEST_F(CommThread, ReceivingOneStaysRegisteredUntilTheEnd) {
    link->rawMode = true;
    const Ref<ComPrimitive> receiver = MakeCop(PDU_COPT_SENDRECV, {}, {}, 70);
    Queue(receiver);
    Execute(MakeCop(PDU_COPT_UPDATEPARAM));
    EXPECT_EQ(link->registry.First().Get(), receiver.Get());
    const LogCapture log;
    End();
    EXPECT_EQ(ThreadLines(log),
              (Texts{" cleanup", "   stop CoP #70 thread", "   free CoP #70", " exiting"}));
    EXPECT_FALSE(link->raw_receive.Take());
    EXPECT_TRUE(receiver->IsOnlyReference());
}

TEST_F(CommThread, EndReleasesWhatHasNotBeenExecuted) {
    std::atomic<bool> entered{false};
    const Ref<ComPrimitive> left = MakeCop(PDU_COPT_UPDATEPARAM, {}, {}, 78);
    const LogCapture log;
    on_event = [&] {
        entered = true;
        while (link->running)
            SleepMs(1);
    };
    Queue(MakeCop(PDU_COPT_UPDATEPARAM));
    Queue(left);
    Begin();
    EXPECT_TRUE(Eventually([&] { return entered.load(); }));
    End();
    EXPECT_EQ(ThreadLines(log),
              (Texts{" starting", " free CoP #77", " cleanup", "   free CoP #78", " exiting"}));
    EXPECT_TRUE(left->IsOnlyReference());
    EXPECT_FALSE(link->pending.Take());
    EXPECT_EQ(left->state, PDU_COPST_IDLE);
}

TEST_F(CommThread, HoldsAReferenceToItsLink) {
    Begin();
    EXPECT_FALSE(link->IsOnlyReference());
    End();
    EXPECT_TRUE(link->IsOnlyReference());
}

TEST_F(CommThread, IsNamed) {
    std::string name;
    on_event = [&] { name = CurrentThreadName(); };
    Execute(MakeCop(PDU_COPT_UPDATEPARAM));
    End();
    EXPECT_EQ(name, KeptThreadName(kWorker));
}

TEST_F(CommThread, NoticesTheEndOfItsLinkWithoutBeingWoken) {
    const LimitsScope scope;
    worker_limits.request_poll_ms = 1;
    Begin();
    link->running = false;
    EXPECT_TRUE(OsThreadJoin(link->thread, static_cast<std::int32_t>(kPatience.count() * 1000)));
}

TEST_F(CommThread, StartIsLoggedUnderTheCallersName) {
    const LogCapture log;
    Begin();
    EXPECT_TRUE(log.Mentions("[Test] Created Thread handle 0x"));
    EXPECT_TRUE(log.Mentions(" (CommThreadFunc) for LogicalLink #4\n"));
}

TEST_F(CommThread, RefusedThreadLeavesTheLinkToItsCaller) {
    const LogCapture log;
    {
        const ThreadStartFault refused(kWorker, 11);
        EXPECT_FALSE(StartWorker("Test", link.Get()));
    }
    EXPECT_TRUE(log.Mentions("[Test] Created Thread handle 0x"));
    EXPECT_EQ(link->thread, nullptr);
    EXPECT_TRUE(link->IsOnlyReference());
}

}  // namespace
}  // namespace tarvik::test
