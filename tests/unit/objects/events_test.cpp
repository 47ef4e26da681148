#include "objects/items.h"
#include "objects/links.h"
#include "unit/faults/heap_fault.h"
#include "unit/objects/fake_modules.h"

namespace tarvik::test {
namespace {

class Events : public FakeModules {
protected:
    void SetUp() override {
        FakeModules::SetUp();
        ASSERT_EQ(Scan(), Handles{0});
        ASSERT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, nullptr, &hCLL, nullptr),
                  PDU_STATUS_NOERROR);
    }

    // Puts a new item into the queue.
    static PDU_EVENT_ITEM* Queue(ItemQueue<EventPtr>* queue) {
        EventPtr item = MakeInfoItem(PDU_INFO_MODULE_LIST_CHG);
        PDU_EVENT_ITEM* queued = item.get();
        EXPECT_TRUE(queue->Append(std::move(item), kNoKey));
        return queued;
    }
    // Expects `expected` to be the next item of this queue, and releases it.
    static void ExpectTaken(UNUM32 hMod, UNUM32 link, PDU_EVENT_ITEM* expected) {
        PDU_EVENT_ITEM* item = nullptr;
        EXPECT_EQ(PDUGetEventItem(hMod, link, &item), PDU_STATUS_NOERROR);
        EXPECT_EQ(item, expected);
        const EventPtr taken(item);
    }

    UNUM32 hCLL = PDU_HANDLE_UNDEF;
};

TEST_F(Events, HandlesSelectTheQueue) {
    PDU_EVENT_ITEM* for_system = Queue(&*SystemEventQueue);
    PDU_EVENT_ITEM* for_module = Queue(&ModuleDevices->slots[0].events);
    PDU_EVENT_ITEM* item = for_system;
    EXPECT_EQ(PDUGetEventItem(0, hCLL, &item), PDU_ERR_EVENT_QUEUE_EMPTY) << "the link's own";
    EXPECT_EQ(item, nullptr);
    ExpectTaken(PDU_HANDLE_UNDEF, hCLL, for_system);
    ExpectTaken(0, 99, for_module);  // an invalid link handle
    for_module = Queue(&ModuleDevices->slots[0].events);
    ExpectTaken(0, PDU_HANDLE_UNDEF, for_module);
    EXPECT_EQ(PDUGetEventItem(255, 0, &item), PDU_ERR_EVENT_QUEUE_EMPTY);
    EXPECT_EQ(PDUGetEventItem(256, 0, &item), PDU_ERR_EVENT_QUEUE_EMPTY);
}

TEST_F(Events, ModuleListChangeWithoutMemoryIsCalledBackOnly) {
    static int calls;
    calls = 0;
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF,
                             [](T_PDU_EVT_DATA, UNUM32, UNUM32, void*, void*) { ++calls; });
    {
        const FailingHeap heap(0, 1);
        NotifySystemModuleListChanged();
    }
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
    EXPECT_EQ(calls, 1);
    ExpectTaken(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, Queue(&*SystemEventQueue));
}

TEST_F(Events, CallingBackReportsWhetherAnybodyWasCalled) {
    const auto callback = [](T_PDU_EVT_DATA, UNUM32, UNUM32, void*, void*) {};
    const LinkRef link = FindLink(0, hCLL);
    EXPECT_FALSE(CallSystemEventCBR(0, hCLL, nullptr, nullptr));
    EXPECT_FALSE(CallModuleEventCBR(0, hCLL, nullptr, nullptr));
    EXPECT_FALSE(CallComLogicalLinkEventCBR(link.Get()));
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, callback);
    EXPECT_FALSE(CallSystemEventCBR(0, hCLL, nullptr, nullptr));
    EXPECT_TRUE(CallModuleEventCBR(0, hCLL, nullptr, nullptr));
    EXPECT_TRUE(CallComLogicalLinkEventCBR(link.Get()));
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, callback);
    EXPECT_TRUE(CallSystemEventCBR(0, hCLL, nullptr, nullptr));
    EXPECT_TRUE(CallModuleEventCBR(0, hCLL, nullptr, nullptr));
    EXPECT_TRUE(CallComLogicalLinkEventCBR(link.Get()));
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
    PDURegisterEventCallback(0, hCLL, callback);
    EXPECT_TRUE(CallComLogicalLinkEventCBR(link.Get()));
}

TEST_F(Events, DestructReleasesQueuedItems) {
    ASSERT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    const MemoryUse before = LiveMemory();
    SetUp();
    PDUConnect(0, hCLL);
    Queue(&*SystemEventQueue);
    Queue(&ModuleDevices->slots[0].events);
    const LogCapture log;
    ASSERT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_FALSE(log.Mentions("[FreePduItem] PDU_IT_STATUS"));
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

}  // namespace
}  // namespace tarvik::test
