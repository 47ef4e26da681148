#include "objects/state_changes.h"

#include <vector>

#include "objects/com_primitives.h"
#include "objects/links.h"
#include "platform/tick.h"
#include "unit/faults/heap_fault.h"
#include "unit/objects/fake_modules.h"
#include "unit/test_system.h"

namespace tarvik::test {
namespace {

// A link that no worker touches: the test does the worker's part.
class ComPrimitives : public FakeModules {
protected:
    void SetUp() override {
        FakeModules::SetUp();
        ASSERT_EQ(Scan(), Handles{0});
        UNUM32 hCLL = 0;
        ASSERT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, &link_tag, &hCLL, nullptr),
                  PDU_STATUS_NOERROR);
        link = FindLink(0, hCLL);
        ASSERT_TRUE(link);
        cop.hCoP = 77;
        cop.hMod = 0;
        cop.hCLL = hCLL;
        cop.pCoPTag = &cop_tag;
        called.clear();
    }
    void TearDown() override {
        link = LinkRef();
        FakeModules::TearDown();
    }

    struct Called {
        const char* by;
        UNUM32 hMod;
        UNUM32 hCLL;
        void* link_tag;
        void* api_tag;
    };
    static inline std::vector<Called> called;
    static void PDU_CALL AsSystem(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void* link_tag,
                                  void* api_tag) {
        called.push_back({"system", hMod, hCLL, link_tag, api_tag});
    }
    static void PDU_CALL AsModule(T_PDU_EVT_DATA, UNUM32 hMod, UNUM32 hCLL, void* link_tag,
                                  void* api_tag) {
        called.push_back({"module", hMod, hCLL, link_tag, api_tag});
    }

    PDU_EVENT_ITEM* NextEvent() {
        PDU_EVENT_ITEM* item = nullptr;
        PDUGetEventItem(0, link->hCLL, &item);
        return item;
    }
    static void GiveBack(PDU_EVENT_ITEM* item) {
        PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item));
    }

    LinkRef link;
    ComPrimitive cop;
    int link_tag = 0;
    int cop_tag = 0;
};

TEST_F(ComPrimitives, StateChangeIsTimedLoggedAndReported) {
    FakeTick tick(5000);
    const LogCapture log;
    UpdateCopState(link.Get(), &cop, PDU_COPST_EXECUTING);
    EXPECT_EQ(cop.duration, 0u) << "nothing is known of the time before the first";
    tick.Advance(1234);
    UpdateCopState(link.Get(), &cop, PDU_COPST_FINISHED);
    EXPECT_EQ(cop.duration, 1234u);
    EXPECT_TRUE(log.Has("[UpdateCopState] CoP #77 Status: 8011, Duration: 0 ms"));
    EXPECT_TRUE(log.Has("[UpdateCopState] CoP #77 Status: 8012, Duration: 1234 ms"));
    for (const UNUM32 state : {PDU_COPST_EXECUTING, PDU_COPST_FINISHED}) {
        PDU_EVENT_ITEM* item = NextEvent();
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->ItemType, PDU_IT_STATUS);
        EXPECT_EQ(item->hCop, 77u);
        EXPECT_EQ(item->pCoPTag, &cop_tag);
        EXPECT_EQ(item->Timestamp, state == PDU_COPST_EXECUTING ? 5'000'000u : 6'234'000u);
        EXPECT_EQ(*static_cast<PDU_STATUS_DATA*>(item->pData), state);
        GiveBack(item);
    }
}

// As during PDUDestruct: the worker's clean-up has ended the queue that it would wait in, and may
// already have taken it out of the registry.
TEST_F(ComPrimitives, OneThatCannotWaitIsReleasedOnce) {
    link->state.store(PDU_CLLST_ONLINE);
    link->pending.Discard();
    const MemoryUse before = LiveMemory();
    EXPECT_EQ(PDUStartComPrimitive(0, link->hCLL, PDU_COPT_UPDATEPARAM, 0, nullptr, nullptr,
                                   nullptr, nullptr),
              PDU_ERR_FCT_FAILED);
    EXPECT_TRUE(LiveMemory() == before);
    EXPECT_FALSE(link->registry.First());
}

TEST_F(ComPrimitives, UnchangedStateIsReportedAgainButNotLogged) {
    const LogCapture log;
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, AsModule);
    UpdateCopState(link.Get(), &cop, PDU_COPST_IDLE);
    EXPECT_FALSE(log.Mentions("[UpdateCopState]"));
    PDU_EVENT_ITEM* item = NextEvent();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(*static_cast<PDU_STATUS_DATA*>(item->pData), PDU_COPST_IDLE);
    GiveBack(item);
    EXPECT_EQ(called.size(), 1u);
}

TEST_F(ComPrimitives, ErrorQueuesAnItemOfTheLinkAndCallsTheLinksCallback) {
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, AsSystem);
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, AsModule);
    cop_error(link.Get(), &cop, kErrorNoMatch);
    PDU_EVENT_ITEM* item = NextEvent();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->ItemType, PDU_IT_ERROR);
    EXPECT_EQ(item->hCop, 77u);
    EXPECT_EQ(item->pCoPTag, &cop_tag);
    EXPECT_EQ(static_cast<PDU_ERROR_DATA*>(item->pData)->ErrorCodeId, 259u);
    EXPECT_EQ(static_cast<PDU_ERROR_DATA*>(item->pData)->ExtraErrorInfoId, 0u);
    GiveBack(item);
    ASSERT_EQ(called.size(), 1u);
    EXPECT_STREQ(called[0].by, "module");
}

TEST_F(ComPrimitives, ErrorOfADestroyedLinkCallsTheSystemCallback) {
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, AsSystem);
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, AsModule);
    ASSERT_EQ(PDUDestroyComLogicalLink(0, link->hCLL), PDU_STATUS_NOERROR);
    called.clear();
    const MemoryUse before = LiveMemory();
    cop_error(link.Get(), &cop, kErrorNothingReceived);
    EXPECT_EQ(LiveMemory().blocks, before.blocks) << "there is nobody to take the item";
    ASSERT_EQ(called.size(), 1u);
    EXPECT_STREQ(called[0].by, "system");
    EXPECT_EQ(called[0].hMod, 0u);
    EXPECT_EQ(called[0].hCLL, link->hCLL);
    EXPECT_EQ(called[0].api_tag, &api_tag);
}

// The callback may be that of another construct.
TEST_F(ComPrimitives, ErrorOfADetachedLinkCallsNobody) {
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, AsSystem);
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, AsModule);
    ASSERT_EQ(PDUDestroyComLogicalLink(0, link->hCLL), PDU_STATUS_NOERROR);
    link->detached = true;
    called.clear();
    cop_error(link.Get(), &cop, kErrorNothingReceived);
    EXPECT_EQ(called.size(), 0u);
}

TEST_F(ComPrimitives, CallbackRunsEvenIfItsItemCannotBeAllocated) {
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, AsModule);
    called.reserve(4);
    {
        const FailingHeap heap;
        UpdateCopState(link.Get(), &cop, PDU_COPST_FINISHED);
        cop_error(link.Get(), &cop, kErrorNothingReceived);
    }
    EXPECT_EQ(cop.state.load(), PDU_COPST_FINISHED);
    EXPECT_EQ(NextEvent(), nullptr);
    EXPECT_EQ(called.size(), 2u);
}

TEST_F(ComPrimitives, ControlDataIsCopiedDeeplyExceptTheFlagBytes) {
    UNUM8 flag[4] = {1, 2, 3, 4};
    UNUM8 mask[2] = {0xFF, 0x0F};
    UNUM8 pattern[2] = {0x62, 0x01};
    UNUM32 ids[3] = {7, 8, 9};
    PDU_EXP_RESP_DATA expected[2] = {{0, 5, 2, mask, pattern, 3, ids},
                                     {1, 6, 0, nullptr, nullptr, 0, nullptr}};
    PDU_COP_CTRL_DATA source = {1000, 2, -1, 1, {4, flag}, 2, expected};
    PDU_COP_CTRL_DATA* copy = CopyControlData(&source);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->Time, 1000u);
    EXPECT_EQ(copy->NumSendCycles, 2);
    EXPECT_EQ(copy->NumReceiveCycles, -1);
    EXPECT_EQ(copy->TempParamUpdate, 1u);
    EXPECT_EQ(copy->TxFlag.pFlagData, flag) << "a copy of the pointer";
    ASSERT_EQ(copy->NumPossibleExpectedResponses, 2u);
    const PDU_EXP_RESP_DATA& first = copy->pExpectedResponseArray[0];
    EXPECT_NE(first.pMaskData, mask);
    EXPECT_EQ(first.pMaskData[1], 0x0F);
    EXPECT_NE(first.pPatternData, pattern);
    EXPECT_EQ(first.pPatternData[0], 0x62);
    EXPECT_NE(first.pUniqueRespIds, ids);
    ASSERT_EQ(first.NumUniqueRespIds, 3u);
    EXPECT_EQ(first.pUniqueRespIds[2], 9u);
    EXPECT_EQ(copy->pExpectedResponseArray[1].AcceptanceId, 6u);
    FreeControlData(copy);
}

TEST_F(ComPrimitives, CountsWithoutTheirArrayAreCopiedAsZero) {
    EXPECT_EQ(CopyControlData(nullptr), nullptr);
    UNUM8 bytes[2] = {1, 2};
    PDU_EXP_RESP_DATA expected = {0, 5, 2, bytes, nullptr, 3, nullptr};
    PDU_COP_CTRL_DATA source = {0, 1, 1, 0, {4, nullptr}, 1, &expected};
    const MemoryUse before = LiveMemory();
    PDU_COP_CTRL_DATA* copy = CopyControlData(&source);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->pExpectedResponseArray[0].NumMaskPatternBytes, 0u);
    EXPECT_EQ(copy->pExpectedResponseArray[0].NumUniqueRespIds, 0u);
    FreeControlData(copy);
    source = {0, 1, 1, 0, {0, nullptr}, 5, nullptr};
    copy = CopyControlData(&source);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->NumPossibleExpectedResponses, 0u);
    FreeControlData(copy);
    EXPECT_TRUE(LiveMemory() == before);
}

TEST_F(ComPrimitives, ControlDataCopiedWithoutEnoughMemoryLeaksNothing) {
    UNUM8 bytes[2] = {1, 2};
    UNUM32 ids[1] = {7};
    PDU_EXP_RESP_DATA expected = {0, 5, 2, bytes, bytes, 1, ids};
    PDU_COP_CTRL_DATA source = {0, 1, 1, 0, {0, nullptr}, 1, &expected};
    const MemoryUse before = LiveMemory();
    bool refused = true;
    for (std::uint32_t allowed = 0; refused; ++allowed) {
        PDU_COP_CTRL_DATA* copy = nullptr;
        {
            const FailingHeap heap(allowed);
            copy = CopyControlData(&source);
            refused = heap.Refused();
        }
        FreeControlData(copy);
        EXPECT_TRUE(LiveMemory() == before) << allowed;
    }
}

TEST_F(ComPrimitives, RequestWhoseBytesCannotBeCopiedIsRefused) {
    ASSERT_EQ(PDUConnect(0, link->hCLL), PDU_STATUS_NOERROR);
    const MemoryUse before = LiveMemory();
    UNUM8 bytes[2] = {0x22, 0xF1};
    bool refused = true;
    for (std::uint32_t allowed = 0; refused; ++allowed) {
        UNUM32 hCoP = 0;
        T_PDU_ERROR status = PDU_STATUS_NOERROR;
        {
            const FailingHeap heap(allowed, 1);
            status = PDUStartComPrimitive(0, link->hCLL, PDU_COPT_SENDRECV, 2, bytes, nullptr,
                                          nullptr, &hCoP);
            refused = heap.Refused();
        }
        EXPECT_EQ(status, refused ? PDU_ERR_FCT_FAILED : PDU_STATUS_NOERROR) << allowed;
        EXPECT_EQ(LiveMemory() == before, refused) << allowed;
    }
}

TEST_F(ComPrimitives, SizeWithoutBytesCountsAsNone) {
    ASSERT_EQ(PDUConnect(0, link->hCLL), PDU_STATUS_NOERROR);
    ASSERT_EQ(OsMutexLock(link->mutex, 0), MutexWait::kAcquired);  // so that its worker waits
    UNUM32 hCoP = 0;
    EXPECT_EQ(
        PDUStartComPrimitive(0, link->hCLL, PDU_COPT_SENDRECV, 2, nullptr, nullptr, nullptr, &hCoP),
        PDU_STATUS_NOERROR);
    EXPECT_TRUE(link->registry.Visit(hCoP, [](const ComPrimitive& started) {
        EXPECT_EQ(started.CoPDataSize, 0u);
        EXPECT_EQ(started.pCoPData, nullptr);
    }));
    OsMutexUnlock(link->mutex);
}

// A destroy came first: the caller has found the link and waits for its mutex.
TEST_F(ComPrimitives, LinkThatEndsMeanwhileCountsAsUnknown) {
    link->state = PDU_CLLST_ONLINE;
    link->running = false;
    UNUM32 hCoP = 7;
    EXPECT_EQ(
        StartOnLink("Test", link.Get(), {PDU_COPT_STARTCOMM, 0, nullptr, nullptr, nullptr}, &hCoP),
        PDU_ERR_INVALID_HANDLE);
    EXPECT_EQ(hCoP, 7u);
    CancelOutcome outcome;
    EXPECT_EQ(CancelOnLink("Test", link.Get(), 7, &outcome), PDU_ERR_INVALID_HANDLE);
    EXPECT_FALSE(outcome.found);
}

// The handles of a process's first two ComPrimitives, as an exit code.
class FirstComPrimitives : public FakeModules {
public:
    static int Handles() {
        FirstComPrimitives library;
        library.TestBody();
        return static_cast<int>(library.first * 10 + library.second);
    }

private:
    void TestBody() override {
        SetUp();
        Scan();
        UNUM32 hCLL = 0;
        PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr);
        PDUConnect(0, hCLL);
        for (UNUM32* handle : {&first, &second}) {
            PDUStartComPrimitive(0, hCLL, PDU_COPT_UPDATEPARAM, 0, nullptr, nullptr, nullptr,
                                 handle);
        }
        TearDown();
    }
    UNUM32 first = 0;
    UNUM32 second = 0;
};
const ChildBody first_com_primitives("first-com-primitives", FirstComPrimitives::Handles);

TEST(ComPrimitiveHandles, CountFromOneInEachProcess) {
    EXPECT_EQ(RunChild("first-com-primitives").exit_code, 12);
}

}  // namespace
}  // namespace tarvik::test
