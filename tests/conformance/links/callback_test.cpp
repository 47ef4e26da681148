#include <atomic>
#include <memory>

#include "conformance/framework/callbacks.h"
#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/params.h"
#include "conformance/framework/waiting.h"

using namespace conformance;

namespace {

void* Tag(std::uintptr_t value) { return reinterpret_cast<void*>(value); }

class Callbacks : public SerialDongle {
protected:
    // The tag is a number that must not be dereferenced.
    void* const kApiTag = Tag(0x11);

    void SetUp() override {
        SerialDongle::SetUp();
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true}, kApiTag));
    }

    static void Register(UNUM32 module, UNUM32 hCLL, const CallbackSpy* spy) {
        EXPECT_EQ(Pdu().PDURegisterEventCallback(module, hCLL,
                                                 spy == nullptr ? nullptr : spy->Function()),
                  PDU_STATUS_NOERROR);
    }
    void RegisterSystem(const CallbackSpy* spy) {
        Register(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, spy);
    }
    void RegisterModule(const CallbackSpy* spy) { Register(hMod, PDU_HANDLE_UNDEF, spy); }

    void ExpectCall(const CallbackCall& call, UNUM32 hCLL, void* cll_tag) {
        EXPECT_EQ(call.event_type, PDU_EVT_DATA_AVAILABLE);
        EXPECT_EQ(call.hMod, hMod);
        EXPECT_EQ(call.hCLL, hCLL);
        EXPECT_EQ(call.cll_tag, cll_tag);
        EXPECT_EQ(call.api_tag, kApiTag);
    }
};

}  // namespace

TEST_F(Callbacks, LinkEventGoesToTheLinkThenTheModuleThenTheSystem) {
    CallbackSpy system;
    CallbackSpy module;
    CallbackSpy own;
    Link link(hMod, Tag(0x22));
    RegisterSystem(&system);
    link.Connect();
    ASSERT_EQ(system.Count(), 1u);
    ExpectCall(system.Calls()[0], link.hCLL(), Tag(0x22));

    RegisterModule(&module);
    link.Disconnect();
    ASSERT_EQ(module.Count(), 1u);
    ExpectCall(module.Calls()[0], link.hCLL(), Tag(0x22));

    Register(hMod, link.hCLL(), &own);
    const LogCapture log;
    link.Connect();
    ASSERT_EQ(own.Count(), 1u);
    ExpectCall(own.Calls()[0], link.hCLL(), Tag(0x22));
    EXPECT_FALSE(log.HasLike("*-> fallback to*"));
    EXPECT_EQ(module.Count(), 1u);
    EXPECT_EQ(system.Count(), 1u);

    Register(hMod, link.hCLL(), nullptr);
    RegisterModule(nullptr);
    link.Disconnect();
    EXPECT_EQ(system.Count(), 2u);

    RegisterSystem(nullptr);
    link.Connect();
    EXPECT_EQ(own.Count(), 1u);
    EXPECT_EQ(module.Count(), 1u);
    EXPECT_EQ(system.Count(), 2u);
}

TEST_F(Callbacks, DispatchIsLogged) {
    CallbackSpy system;
    Link link(hMod);
    RegisterSystem(&system);
    const LogCapture log;
    link.Connect();
    EXPECT_EQ(log.MissingOf({
                  "[CallComLogicalLinkEventCBR] ComLogicalLinkEventCBR (0, 0)",
                  "[CallComLogicalLinkEventCBR] -> fallback to module",
                  "[CallModuleEventCBR] ModuleEventCBR (0, 0)",
                  "[CallModuleEventCBR] -> fallback to system",
                  "[CallModuleEventCBR] SystemEventCBR (0, 0)",
              }),
              "");
    RegisterSystem(nullptr);
}

TEST_F(Callbacks, RegistrationIsLogged) {
    CallbackSpy spy;
    const Link link(hMod);
    const LogCapture log;
    for (const CallbackSpy* one :
         {static_cast<const CallbackSpy*>(&spy), static_cast<const CallbackSpy*>(nullptr)}) {
        Register(PDU_HANDLE_UNDEF, 3, one);  // the system's, whatever the link
        RegisterModule(one);
        Register(hMod, link.hCLL(), one);
    }
    EXPECT_EQ(Pdu().PDURegisterEventCallback(hMod, 99, spy.Function()), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(log.MissingOf({
                  "[PDURegisterEventCallback] Called (4294967295, 3, *)",
                  "[PDURegisterEventCallback] Registered SystemEventCBR",
                  "[PDURegisterEventCallback] Registered ModuleEventCBR",
                  "[PDURegisterEventCallback] Registered ComLogicalLinkEventCBR",
                  "[PDURegisterEventCallback] Returning PDU_STATUS_NOERROR",
                  "[PDURegisterEventCallback] Deregistered SystemEventCBR",
                  "[PDURegisterEventCallback] Deregistered ModuleEventCBR",
                  "[PDURegisterEventCallback] Deregistered ComLogicalLinkEventCBR",
                  "[PDURegisterEventCallback] Called (0, 99, *)",
                  "[PDURegisterEventCallback] Registered ComLogicalLinkEventCBR",
                  "[PDURegisterEventCallback] Returning PDU_ERR_INVALID_HANDLE",
              }),
              "");
    EXPECT_EQ(log.Count("[PDURegisterEventCallback] Returning PDU_STATUS_NOERROR"), 6u);
}

TEST_F(Callbacks, OneModuleCallbackServesAllModules) {
    CallbackSpy first;
    CallbackSpy second;
    Link link(hMod);
    RegisterModule(&first);
    Register(200, PDU_HANDLE_UNDEF, &second);  // any module handle replaces it
    link.Connect();
    EXPECT_EQ(first.Count(), 0u);
    EXPECT_EQ(second.Count(), 1u);
    Register(300, PDU_HANDLE_UNDEF, nullptr);
}

TEST_F(Callbacks, AreCalledForEveryEventEvenIfTheQueueIsNotEmpty) {
    CallbackSpy spy;
    Link link(hMod);
    RegisterSystem(&spy);
    for (int i = 0; i < 3; ++i) {
        link.Connect();
        link.Disconnect();
    }
    EXPECT_EQ(spy.Count(), 6u);
    RegisterSystem(nullptr);
}

TEST_F(Callbacks, OnlyLinkCallbacksAreLostAtANewConstruct) {
    CallbackSpy module;
    CallbackSpy own;
    {
        Link link(hMod);
        RegisterModule(&module);
        Register(hMod, link.hCLL(), &own);
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    }
    ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true}, kApiTag));
    Link link(hMod);
    EXPECT_EQ(link.hCLL(), 0u);
    const std::size_t before = own.Count();
    link.Connect();
    EXPECT_EQ(own.Count(), before);
    EXPECT_EQ(module.Count(), 1u);
    RegisterModule(nullptr);
}

TEST_F(Callbacks, ApiTagIsThatOfTheLastConstruct) {
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true}, Tag(0x77)));
    CallbackSpy spy;
    Link link(hMod, Tag(1));
    RegisterSystem(&spy);
    link.Connect();
    ASSERT_EQ(spy.Count(), 1u);
    EXPECT_EQ(spy.Calls()[0].api_tag, Tag(0x77));
    EXPECT_EQ(spy.Calls()[0].cll_tag, Tag(1));
    RegisterSystem(nullptr);
}

// Applications do this: drain the queue on the library's thread until it is empty.
TEST_F(Callbacks, QueueCanBeDrainedInside) {
    CallbackSpy spy;
    std::atomic<int> finished{0};
    Link link(hMod);
    spy.OnCall([&finished](const CallbackCall& call) {
        while (const auto event = NextEvent(call.hMod, call.hCLL)) {
            if (event->ItemType == PDU_IT_STATUS && StatusOf(*event) == PDU_COPST_FINISHED) {
                ++finished;
            }
        }
    });
    Register(hMod, link.hCLL(), &spy);
    link.Connect();
    for (int i = 0; i < 20; ++i)
        link.Start(PDU_COPT_UPDATEPARAM);
    EXPECT_TRUE(Eventually([&] { return finished == 20; })) << finished;
    Register(hMod, link.hCLL(), nullptr);
}

TEST_F(Callbacks, EveryOtherFunctionMayBeCalledInside) {
    CallbackSpy spy;
    auto done = std::make_shared<Gate>();
    Link link(hMod);
    Link other(hMod);
    // It starts a ComPrimitive, which calls it again on the worker thread.
    std::atomic<bool> entered{false};
    spy.OnCall([done, &other, &entered](const CallbackCall& call) {
        if (entered.exchange(true)) return;
        const Functions& pdu = Pdu();
        UNUM32 value = 0;
        PDU_VERSION_DATA version{};
        EXPECT_EQ(pdu.PDUGetVersion(call.hMod, &version), PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDUGetTimestamp(call.hMod, &value), PDU_STATUS_NOERROR);
        EXPECT_EQ(
            pdu.PDUGetStatus(call.hMod, call.hCLL, PDU_HANDLE_UNDEF, &value, nullptr, nullptr),
            PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDUGetLastError(0, 0, nullptr, nullptr, nullptr, nullptr),
                  PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDUGetResourceStatus(nullptr), PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDUGetConflictingResources(2001, nullptr, nullptr), PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDULockResource(call.hMod, call.hCLL, 1), PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDUUnlockResource(call.hMod, call.hCLL, 1), PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDUIoCtl(call.hMod, call.hCLL, 5000, nullptr, nullptr), PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDUConstruct(nullptr, nullptr), PDU_ERR_SHARING_VIOLATION);
        EXPECT_EQ(pdu.PDUModuleConnect(call.hMod), PDU_STATUS_NOERROR);
        EXPECT_EQ(pdu.PDUModuleDisconnect(call.hMod), PDU_STATUS_NOERROR);
        SetNumber("CP_P3Phys", 5);
        EXPECT_EQ(GetNumber("CP_P3Phys"), 5u);
        EXPECT_NE(GetModuleIds(), nullptr);
        PDU_RSC_DATA resource = CanResource();
        PDU_RSC_ID_ITEM* resources = nullptr;
        EXPECT_EQ(pdu.PDUGetResourceIds(call.hMod, &resource, &resources), PDU_STATUS_NOERROR);
        pdu.PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(resources));
        auto table = GetUniqueTable(call.hMod, call.hCLL);
        EXPECT_EQ(pdu.PDUSetUniqueRespIdTable(call.hMod, call.hCLL, table.get()),
                  PDU_STATUS_NOERROR);
        EXPECT_EQ(other.Connect(), PDU_STATUS_NOERROR);
        UNUM32 hCoP = 0;
        EXPECT_EQ(pdu.PDUStartComPrimitive(call.hMod, call.hCLL, PDU_COPT_UPDATEPARAM, 0, nullptr,
                                           nullptr, nullptr, &hCoP),
                  PDU_STATUS_NOERROR);
        // The worker runs in parallel and may have released it already.
        const T_PDU_ERROR cancelled = pdu.PDUCancelComPrimitive(call.hMod, call.hCLL, hCoP);
        EXPECT_TRUE(cancelled == PDU_STATUS_NOERROR || cancelled == PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(other.Disconnect(), PDU_STATUS_NOERROR);
        { const Link third(call.hMod); }
        EXPECT_EQ(pdu.PDURegisterEventCallback(call.hMod, call.hCLL, nullptr), PDU_STATUS_NOERROR);
        done->Open();
    });
    Register(hMod, link.hCLL(), &spy);
    link.Connect();  // the first event, on this thread
    EXPECT_TRUE(done->IsOpen());

    // Again, on the link's own worker thread.
    auto on_worker = std::make_shared<Gate>();
    spy.OnCall([on_worker](const CallbackCall& call) {
        UNUM32 hCoP = 0;
        Pdu().PDUStartComPrimitive(call.hMod, call.hCLL, PDU_COPT_RESTORE_PARAM, 0, nullptr,
                                   nullptr, nullptr, &hCoP);
        Pdu().PDUCancelComPrimitive(call.hMod, call.hCLL, hCoP);
        GetModuleIds();
        Pdu().PDURegisterEventCallback(call.hMod, call.hCLL, nullptr);
        on_worker->Open();
    });
    Register(hMod, link.hCLL(), &spy);
    link.Start(PDU_COPT_UPDATEPARAM);
    EXPECT_TRUE(on_worker->Wait());
}

TEST_F(Callbacks, LinkCanBeDestroyedInside) {
    CallbackSpy spy;
    auto done = std::make_shared<Gate>();
    Link link(hMod);
    link.Connect();
    spy.OnCall([done](const CallbackCall& call) {
        if (Pdu().PDUDestroyComLogicalLink(call.hMod, call.hCLL) == PDU_STATUS_NOERROR) {
            done->Open();
        }
    });
    Register(hMod, link.hCLL(), &spy);
    const LogCapture log;
    link.Start(PDU_COPT_STARTCOMM);
    EXPECT_TRUE(done->Wait());
    EXPECT_TRUE(Eventually([&] { return log.Has("[CommThreadFunc] exiting"); }));
    EXPECT_EQ(spy.Count(), 1u) << "of the final state; the link's own state is told no more";
    link.Destroy();
}
