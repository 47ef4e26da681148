#include <functional>
#include <optional>
#include <thread>

#include "objects/state_changes.h"
#include "unit/faults/heap_fault.h"
#include "unit/objects/fake_modules.h"

namespace tarvik::test {
namespace {

// One module that no packet ever leaves: exchanges fail at once.
class Links : public FakeModules {
protected:
    void SetUp() override {
        FakeModules::SetUp();
        ASSERT_EQ(Scan(), Handles{0});
    }
    void TearDown() override {
        action = nullptr;
        FakeModules::TearDown();
    }

    static std::uint32_t Create() {
        std::uint32_t hCLL = PDU_HANDLE_UNDEF;
        EXPECT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr),
                  PDU_STATUS_NOERROR);
        return hCLL;
    }
    static void Drain(std::uint32_t hCLL, const std::function<void(const PDU_EVENT_ITEM&)>& look) {
        PDU_EVENT_ITEM* item = nullptr;
        while (PDUGetEventItem(0, hCLL, &item) == PDU_STATUS_NOERROR) {
            look(*item);
            PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item));
        }
    }
    static std::uint32_t StartRequest(std::uint32_t hCLL) {
        UNUM8 request[] = {0x3E, 0x00};
        std::uint32_t hCoP = 0;
        EXPECT_EQ(PDUStartComPrimitive(0, hCLL, PDU_COPT_SENDRECV, sizeof request, request, nullptr,
                                       nullptr, &hCoP),
                  PDU_STATUS_NOERROR);
        return hCoP;
    }

    static inline std::atomic<std::uint32_t> calls{0};
    static inline std::function<void(std::uint32_t hMod, std::uint32_t hCLL)> action;
    static void PDU_CALL OnEvent(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void*, void*) {
        if (action) action(hMod, hCLL);
        ++calls;
    }
};

TEST_F(Links, CreationDuringADestructIsRefused) {
    ASSERT_TRUE(ChangeLibraryState(Lifecycle::kConstructed, Lifecycle::kDestructing));
    const LogCapture log;
    std::uint32_t hCLL = 7;
    EXPECT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr),
              PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(hCLL, 7u);
    EXPECT_TRUE(
        log.Has("[PDUCreateComLogicalLink] Invalid hMod (0), module not found, Returning "
                "PDU_ERR_INVALID_HANDLE"));
    ASSERT_TRUE(ChangeLibraryState(Lifecycle::kDestructing, Lifecycle::kConstructed));
}

TEST_F(Links, UnknownModuleHasNone) {
    for (const UNUM32 hMod : {1u, 255u, 256u, PDU_HANDLE_UNDEF}) {
        std::uint32_t hCLL = 7;
        EXPECT_EQ(PDUCreateComLogicalLink(hMod, nullptr, 2001, nullptr, &hCLL, nullptr),
                  PDU_ERR_INVALID_HANDLE);
        EXPECT_EQ(hCLL, 7u);
    }
}

// Nor is the handle that it would have had ever used.
TEST_F(Links, LinkWithoutMemoryForItIsNotCreated) {
    for (const std::uint32_t allowed : {0u, 1u}) {
        std::uint32_t hCLL = 7;
        T_PDU_ERROR status = PDU_STATUS_NOERROR;
        {
            const FailingHeap heap(allowed, 1);
            status = PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr);
        }
        EXPECT_EQ(status, PDU_ERR_FCT_FAILED);
        EXPECT_EQ(hCLL, 7u);
    }
    EXPECT_EQ(ModuleDevices->slots[0].link_count, 1u);
    EXPECT_FALSE(FindLink(0, 0));
    EXPECT_EQ(PDUConnect(0, 0), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(Create(), 1u);
}

TEST_F(Links, EarlierOnesStayWhenAnotherIsCreated) {
    for (std::uint32_t count = 1; count <= 3; ++count) {
        EXPECT_EQ(Create(), count - 1);
        for (std::uint32_t hCLL = 0; hCLL < count; ++hCLL)
            EXPECT_TRUE(FindLink(0, hCLL));
    }
}

TEST_F(Links, FirstFlagByteDecidesOnRawModeAndItsChecksum) {
    const std::string line = "[PDUCreateComLogicalLink]   Raw mode: Checksum ";
    const auto created_with = [&](UNUM8 first, bool raw, bool checksum) {
        UNUM8 bytes[1] = {first};
        PDU_FLAG_DATA flag = {1, bytes};
        const LogCapture log;
        std::uint32_t hCLL = PDU_HANDLE_UNDEF;
        EXPECT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, &flag),
                  PDU_STATUS_NOERROR);
        const LinkRef link = FindLink(0, hCLL);
        EXPECT_EQ(link->rawMode, raw) << int{first};
        EXPECT_EQ(link->rawChecksum, checksum) << int{first};
        EXPECT_EQ(log.Has(line + "ON"), raw && checksum) << int{first};
        EXPECT_EQ(log.Has(line + "OFF"), raw && !checksum) << int{first};
    };
    created_with(0x00, false, false);
    created_with(0x40, false, false);
    created_with(0x3F, false, false);
    created_with(0x80, true, false);
    created_with(0xBF, true, false);
    created_with(0xC0, true, true);
}

TEST_F(Links, ResourceDataDecidesOnTheProtocol) {
    PDU_RSC_DATA resource{};
    resource.BusTypeId = kBusTypeCan;
    resource.ProtocolId = 77;
    const LogCapture log;
    std::uint32_t hCLL = PDU_HANDLE_UNDEF;
    ASSERT_EQ(PDUCreateComLogicalLink(0, &resource, PDU_ID_UNDEF, nullptr, &hCLL, nullptr),
              PDU_STATUS_NOERROR);
    const LinkRef link = FindLink(0, hCLL);
    EXPECT_EQ(link->BusTypeId, kBusTypeCan);
    EXPECT_EQ(link->ProtocolId, 77u);
    EXPECT_EQ(link->protocolKind, ProtocolKind::kCan);
    EXPECT_TRUE(log.Mentions("  Protocol: CAN (BusType: "));
}

TEST_F(Links, FlagWithoutBytesIsNotRead) {
    UNUM8 raw[1] = {0x80};
    PDU_FLAG_DATA without_count = {0, raw};
    PDU_FLAG_DATA without_bytes = {1, nullptr};
    for (PDU_FLAG_DATA* flag : {&without_count, &without_bytes}) {
        std::uint32_t hCLL = PDU_HANDLE_UNDEF;
        EXPECT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, flag),
                  PDU_STATUS_NOERROR);
        EXPECT_FALSE(FindLink(0, hCLL)->rawMode);
    }
}

TEST_F(Links, BusOrProtocolDecidesOnTheKindOfProtocol) {
    constexpr std::uint32_t kOther = 1;
    EXPECT_EQ(DecideProtocol(kBusTypeCan, kOther), ProtocolKind::kCan);
    EXPECT_EQ(DecideProtocol(kOther, kProtocolCan), ProtocolKind::kCan);
    EXPECT_EQ(DecideProtocol(kBusTypeDoip, kOther), ProtocolKind::kDoip);
    EXPECT_EQ(DecideProtocol(kOther, kProtocolDoip), ProtocolKind::kDoip);
    EXPECT_EQ(DecideProtocol(kBusTypeCan, kProtocolDoip), ProtocolKind::kDoip);
    EXPECT_EQ(DecideProtocol(kOther, kOther), ProtocolKind::kUnknown);
}

TEST_F(Links, ThirdTxFlagByteMakesARawFrameExtended) {
    UNUM8 raw[1] = {0x80};
    PDU_FLAG_DATA raw_flag = {1, raw};
    std::uint32_t hCLL = PDU_HANDLE_UNDEF;
    ASSERT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, &raw_flag),
              PDU_STATUS_NOERROR);
    ASSERT_EQ(PDUConnect(0, hCLL), PDU_STATUS_NOERROR);
    const auto extended_with = [&](PDU_FLAG_DATA tx_flag) {
        UNUM8 frame[] = {0, 0, 1, 0x23};
        PDU_COP_CTRL_DATA control{};
        control.NumSendCycles = 1;
        control.TxFlag = tx_flag;
        const LogCapture log;
        EXPECT_EQ(PDUStartComPrimitive(0, hCLL, PDU_COPT_STARTCOMM, sizeof frame, frame, &control,
                                       nullptr, nullptr),
                  PDU_STATUS_NOERROR);
        EXPECT_TRUE(Eventually([&] { return log.Mentions("[CommThreadFunc] free CoP #"); }));
        EXPECT_TRUE(log.Mentions("RAW: Send CAN frame 0x0123 "));
        return log.Mentions("(extended)");
    };
    UNUM8 set[] = {0, 0, 0x01, 0};
    UNUM8 clear[] = {0xFF, 0xFF, 0xFE, 0xFF};
    EXPECT_TRUE(extended_with({4, set}));
    EXPECT_TRUE(extended_with({3, set}));
    EXPECT_FALSE(extended_with({2, set}));
    EXPECT_FALSE(extended_with({4, clear}));
    EXPECT_FALSE(extended_with({4, nullptr}));
}

TEST_F(Links, StatusIsThatOfTheLinkOrOfItsComPrimitive) {
    const std::uint32_t hCLL = Create();
    UNUM32 status = 0;
    EXPECT_EQ(PDUGetStatus(0, hCLL, PDU_HANDLE_UNDEF, &status, nullptr, nullptr),
              PDU_STATUS_NOERROR);
    EXPECT_EQ(status, PDU_CLLST_OFFLINE);
    PDUConnect(0, hCLL);
    EXPECT_EQ(PDUGetStatus(0, hCLL, PDU_HANDLE_UNDEF, &status, nullptr, nullptr),
              PDU_STATUS_NOERROR);
    EXPECT_EQ(status, PDU_CLLST_ONLINE);

    const Ref<ComPrimitive> cop = MakeCounted<ComPrimitive>();
    cop->hCoP = 0x7000'0000;
    cop->state.store(PDU_COPST_WAITING);
    const LinkRef link = FindLink(0, hCLL);
    ASSERT_TRUE(link->registry.Append(Ref<ComPrimitive>(cop), cop->hCoP));
    EXPECT_EQ(PDUGetStatus(0, 0, cop->hCoP, &status, nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(status, PDU_COPST_WAITING);
    EXPECT_EQ(PDUGetStatus(0, 0, cop->hCoP, nullptr, nullptr, nullptr), PDU_STATUS_NOERROR);
    link->registry.Remove(cop->hCoP);
    EXPECT_EQ(PDUGetStatus(0, 0, cop->hCoP, &status, nullptr, nullptr), PDU_ERR_INVALID_HANDLE);
}

TEST_F(Links, StatusOfAComPrimitiveIsSoughtOnPresentModulesOnly) {
    const std::uint32_t hCLL = Create();
    const Ref<ComPrimitive> cop = MakeCounted<ComPrimitive>();
    cop->hCoP = 0x7000'0000;
    const LinkRef link = FindLink(0, hCLL);
    ASSERT_TRUE(link->registry.Append(Ref<ComPrimitive>(cop), cop->hCoP));
    ModuleDevices->slots[0].present.store(false);
    UNUM32 status = 0;
    EXPECT_EQ(PDUGetStatus(0, 0, cop->hCoP, &status, nullptr, nullptr), PDU_ERR_INVALID_HANDLE);
    ModuleDevices->slots[0].present.store(true);
    link->registry.Remove(cop->hCoP);
}

TEST_F(Links, StatusIsNotThatOfALinkThatIsDestroyedMeanwhile) {
    const std::uint32_t hCLL = Create();
    const Ref<ComPrimitive> cop = MakeCounted<ComPrimitive>();
    cop->hCoP = 0x7000'0000;
    const LinkRef link = FindLink(0, hCLL);
    ASSERT_TRUE(link->registry.Append(Ref<ComPrimitive>(cop), cop->hCoP));
    constexpr UNUM32 kNone = 77;
    UNUM32 status = kNone;
    // The caller has found the link and waits for its mutex.
    const auto status_of = [&](UNUM32 hCoP) {
        status = kNone;
        link->running = true;
        EXPECT_EQ(OsMutexLock(link->mutex, 0), MutexWait::kAcquired);
        const LogCapture log;
        std::atomic<T_PDU_ERROR> result{PDU_STATUS_NOERROR};
        Thread asker([&] { result = PDUGetStatus(0, hCLL, hCoP, &status, nullptr, nullptr); });
        EXPECT_TRUE(Eventually([&] { return log.Has("[PDUGetStatus] (0, 0, ...)"); }));
        link->running = false;
        asker.Join();
        OsMutexUnlock(link->mutex);
        return result.load();
    };
    EXPECT_EQ(status_of(cop->hCoP), PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(status, kNone);
    EXPECT_EQ(status_of(PDU_HANDLE_UNDEF), PDU_STATUS_NOERROR) << "the module's";
    EXPECT_NE(status, kNone);
    link->running = true;
    link->registry.Remove(cop->hCoP);
}

TEST_F(Links, DestroyedLinkChangesNoStateAndRaisesNoEvent) {
    const std::uint32_t hCLL = Create();
    const LinkRef link = FindLink(0, hCLL);
    ASSERT_TRUE(link);
    ASSERT_EQ(PDUDestroyComLogicalLink(0, hCLL), PDU_STATUS_NOERROR);
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, OnEvent);
    calls = 0;
    SetLinkState(link.Get(), PDU_CLLST_COMM_STARTED);
    EXPECT_EQ(link->state.load(), PDU_CLLST_OFFLINE);
    EXPECT_EQ(calls.load(), 0u);
}

TEST_F(Links, SecondCancelFindsAnInvalidState) {
    const std::uint32_t hCLL = Create();
    PDUConnect(0, hCLL);
    Drain(hCLL, [](const PDU_EVENT_ITEM&) {});
    std::atomic<std::uint32_t> hCoP{0};
    std::atomic<bool> over{false};
    action = [&](std::uint32_t hMod, std::uint32_t link) {
        Drain(link, [&](const PDU_EVENT_ITEM& item) {
            hCoP = item.hCop;
            EXPECT_EQ(PDUCancelComPrimitive(hMod, link, item.hCop), PDU_STATUS_NOERROR);
            if (item.ItemType != PDU_IT_STATUS) return;
            over = *static_cast<PDU_STATUS_DATA*>(item.pData) == PDU_COPST_CANCELLED;
        });
    };
    const LogCapture log;
    PDURegisterEventCallback(0, hCLL, OnEvent);
    StartRequest(hCLL);
    ASSERT_TRUE(Eventually([&] { return over.load(); }));
    PDURegisterEventCallback(0, hCLL, nullptr);
    const std::string id = std::to_string(hCoP.load());
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] Aborting CoP id " + id));
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] CoP id " + id + " in invalid state"));
    EXPECT_TRUE(log.Has("[PDUCancelComPrimitive] Returning PDU_STATUS_NOERROR"));
}

// One thread keeps the module lock by its status query, and another destructs the library first.
TEST_F(Links, KeptModuleLockIsReleasedWhenItsThreadDestructsSecond) {
    const std::uint32_t hCLL = Create();
    PDUConnect(0, hCLL);
    std::atomic<bool> entered{false};
    std::atomic<bool> leave{false};
    action = [&](std::uint32_t, std::uint32_t) {
        entered = true;
        EXPECT_TRUE(Eventually([&] { return leave.load(); }));
    };
    PDURegisterEventCallback(0, hCLL, OnEvent);
    const std::uint32_t hCoP = StartRequest(hCLL);
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    std::uint32_t state = 0;
    ASSERT_EQ(PDUGetStatus(0, hCLL, hCoP, &state, nullptr, nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(state, PDU_COPST_EXECUTING);
    std::thread other([] { EXPECT_EQ(PDUDestruct(), PDU_STATUS_NOERROR); });
    EXPECT_TRUE(Eventually([] { return LibraryState() == Lifecycle::kDestructing; }));
    EXPECT_EQ(PDUDestruct(), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);
    leave = true;
    other.join();
}

// Of a link that no worker touches. The test holds its mutex while another thread asks for it.
class LinkMutex : public testing::Test {
protected:
    LinkMutex() { link->mutex = OsMutexCreate(); }

    void Ask(LinkUser user) {
        asker.emplace([this, user] {
            const LinkMutexGuard guard(link.Get(), user);
            owned = static_cast<bool>(guard);
            answered = true;
        });
    }
    bool Answered() const {
        return Eventually([this] { return answered.load(); });
    }

    Ref<LinkRecord> link = MakeCounted<LinkRecord>();
    std::atomic<bool> owned{false};
    std::atomic<bool> answered{false};
    std::optional<Thread> asker;
};

TEST_F(LinkMutex, IsNotWaitedForOnceItsLinkIsDestroyed) {
    for (const LinkUser user : {LinkUser::kApiCall, LinkUser::kWorker}) {
        link->running = true;
        answered = false;
        ASSERT_EQ(OsMutexLock(link->mutex, 0), MutexWait::kAcquired);
        Ask(user);
        EXPECT_FALSE(answered);
        link->running = false;
        EXPECT_TRUE(Answered());
        OsMutexUnlock(link->mutex);
        asker.reset();
        EXPECT_FALSE(owned);
    }
}

TEST_F(LinkMutex, OfADestroyedLinkIsForItsWorkerOnly) {
    Ask(LinkUser::kApiCall);
    EXPECT_TRUE(Answered());
    asker.reset();
    EXPECT_FALSE(owned);
    Ask(LinkUser::kWorker);
    asker.reset();
    EXPECT_TRUE(owned);
}

TEST_F(LinkMutex, IsWaitedForWhileItsLinkExists) {
    link->running = true;
    ASSERT_EQ(OsMutexLock(link->mutex, 0), MutexWait::kAcquired);
    Ask(LinkUser::kApiCall);
    OsMutexUnlock(link->mutex);
    asker.reset();
    EXPECT_TRUE(owned);
    EXPECT_EQ(OsMutexLock(link->mutex, 0), MutexWait::kAcquired) << "given back";
    OsMutexUnlock(link->mutex);
}

}  // namespace
}  // namespace tarvik::test
