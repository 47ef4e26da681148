// PDUDestruct during other activity: it returns in bounded time, and a construct after it works.

#include <atomic>
#include <cstdint>
#include <memory>

#include "conformance/framework/callbacks.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/fresh_process.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/params.h"
#include "conformance/framework/system.h"
#include "conformance/framework/waiting.h"

using namespace conformance;

namespace {

using Destruct = SerialDongle;

void ExpectDestructEnds() {
    EXPECT_TRUE(EndsInTime([] { EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR); }));
}

UNUM32 ConstructWithSerial() {
    Settings{.useSerial = true}.Store();
    EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    return FindModule();
}

}  // namespace

TEST_F(Destruct, StopsLinksAndLogsEachStep) {
    Link active(hMod);
    Link destroyed(hMod);
    destroyed.Destroy();
    const LogCapture log;
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.MissingOf({
                  "[PDUDestruct] Called",
                  "[PDUDestruct] Checking 2 logical links for module 0",
                  "[PDUDestruct] Stopping logical link #0 on module #0",
                  "[PDUDestruct] Waiting for Thread handle 0x* to exit (LogicalLink #0)",
                  "[PDUDestruct] Closing Thread handle 0x* (LogicalLink #0)",
                  "[PDUDestruct] Closing Mutex handle 0x* (LogicalLink #0)",
                  "[PDUDestruct] Cleaned up 1 logical links for module 0",
                  "[PDUDestruct] Returning PDU_STATUS_NOERROR",
              }),
              "");
    EXPECT_FALSE(log.Has("[PDUDestruct] Stopping logical link #1 on module #0"));
}

TEST_F(Destruct, ReturnsDuringARequestAndAScanWithACallbackRegistered) {
    simulator.Command("mute");
    SetNumber("CP_P2Max", 60'000'000);
    CallbackSpy spy;
    Link link(hMod);
    link.Register(spy.Function());
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    link.Address(0x7E0, 0x7E8);
    link.StartRequest({0x22, 0xF1, 0x90});
    ASSERT_TRUE(simulator.WaitFor(1, "in CREQ"));
    auto scanning = std::make_shared<Gate>();
    PDU_MODULE_ITEM* modules = nullptr;
    Thread scanner([scanning, &modules] {
        scanning->Open();
        Pdu().PDUGetModuleIds(&modules);
    });
    ASSERT_TRUE(scanning->Wait());
    ExpectDestructEnds();
    scanner.Join();
    simulator.Reset();
    ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true}));
    // Items can only be destroyed while the library is constructed. Null: the scan came too late.
    EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(modules)), PDU_STATUS_NOERROR);
}

TEST_F(Destruct, MayBeCalledInsideACallbackFollowedByConstruct) {
    CallbackSpy spy;
    auto done = std::make_shared<Gate>();
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    const LogCapture log;
    spy.OnCall([done](const CallbackCall&) {
        if (done->IsOpen()) return;
        EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        EXPECT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
        done->Open();
    });
    link.Register(spy.Function());
    link.Start(PDU_COPT_UPDATEPARAM);
    ASSERT_TRUE(done->Wait());
    EXPECT_NE(FindModule(), PDU_HANDLE_UNDEF);
    // Nothing else waits for this worker.
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
}

TEST_F(Destruct, ReturnsWhileCallbacksKeepArriving) {
    CallbackSpy spy;
    spy.OnCall([](const CallbackCall& call) {
        while (NextEvent(call.hMod, call.hCLL)) {
        }
    });
    Pdu().PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, spy.Function());
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    for (int i = 0; i < 200; ++i)
        link.Start(PDU_COPT_UPDATEPARAM);
    ExpectDestructEnds();
}

TEST_F(Destruct, ReleasesTheLockThatAStatusQueryHolds) {
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    simulator.Command("mute");
    SetNumber("CP_P2Max", 4'000'000);
    link.Address(0x7E0, 0x7E8);
    const UNUM32 hCoP = link.StartRequest({0x22, 0xF1, 0x90});
    UNUM32 status = 0;
    // The ComPrimitive is found despite the wrong module and link.
    ASSERT_EQ(Pdu().PDUGetStatus(77, 88, hCoP, &status, nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_TRUE(status == PDU_COPST_IDLE || status == PDU_COPST_EXECUTING) << status;
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    simulator.Reset();
    auto found = std::make_shared<Gate>();
    Settings{.useSerial = true}.Store();
    ASSERT_EQ(Pdu().PDUConstruct(nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_TRUE(EndsInTime([found] {
        if (FindModule() != PDU_HANDLE_UNDEF) found->Open();
    }));
    EXPECT_TRUE(found->IsOpen());
}

namespace {

std::atomic<bool> callback_is_stuck{false};

// Cannot be unwound: an application may have any function around it.
void PDU_CALL StuckCallback(T_PDU_EVT_DATA, UNUM32, UNUM32, void*, void*) noexcept {
    callback_is_stuck.store(true);
    BlockForever();
}

}  // namespace

// The worker is stuck in the application's callback. It is terminated, or left there.
FRESH_PROCESS_TEST(Termination, OfAWorkerStuckInACallbackLetsDestructContinue) {
    const UNUM32 hMod = ConstructWithSerial();
    ASSERT_NE(hMod, PDU_HANDLE_UNDEF);
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    ASSERT_EQ(link.Register(StuckCallback), PDU_STATUS_NOERROR);
    link.Start(PDU_COPT_UPDATEPARAM);
    ASSERT_TRUE(Eventually([] { return callback_is_stuck.load(); }));
    const LogCapture log;
    const std::uint64_t begin = TickMs();
    ExpectDestructEnds();
    EXPECT_GE(TickMs() - begin, 1900u);  // the whole time limit, less one clock step
    EXPECT_EQ(log.MissingOf({
                  "[PDUDestruct] Waiting for Thread handle 0x* to exit (LogicalLink #0)",
                  "[PDUDestruct] Thread 0x* for link #0 did not exit, terminating",
                  "[PDUDestruct] Closing Thread handle 0x* (LogicalLink #0)",
                  "[PDUDestruct] Returning PDU_STATUS_NOERROR",
              }),
              "");
    EXPECT_NE(ConstructWithSerial(), PDU_HANDLE_UNDEF);
    EXPECT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
}
