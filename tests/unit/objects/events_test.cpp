#include "objects/items.h"
#include "objects/links.h"
#include "unit/objects/fake_modules.h"

namespace tarvik::test {
namespace {

struct Call {
    int callback;
    UNUM32 event_type, hMod, hCLL;
    void* cll_tag;
    void* api_tag;
};
std::vector<Call> calls;  // callbacks run on the test's own thread here

template <int kNumber>
void PDU_CALL Callback(T_PDU_EVT_DATA type, UNUM32 hMod, UNUM32 hCLL, void* cll_tag,
                       void* api_tag) {
    calls.push_back({kNumber, type, hMod, hCLL, cll_tag, api_tag});
}

class Events : public FakeModules {
protected:
    void SetUp() override {
        FakeModules::SetUp();
        calls.clear();
        ASSERT_EQ(Scan(), Handles{0});
        ASSERT_EQ(PDUCreateComLogicalLink(0, nullptr, 2001, &link_tag, &hCLL, nullptr),
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

    int link_tag = 0;
    UNUM32 hCLL = PDU_HANDLE_UNDEF;
};

TEST_F(Events, LinkCallbackIsTriedFirstThenTheModulesThenTheSystems) {
    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, Callback<1>);
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, Callback<2>);
    PDURegisterEventCallback(0, hCLL, Callback<3>);
    const LogCapture log;
    PDUConnect(0, hCLL);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].callback, 3);
    EXPECT_EQ(calls[0].event_type, PDU_EVT_DATA_AVAILABLE);
    EXPECT_EQ(calls[0].cll_tag, &link_tag);
    EXPECT_EQ(calls[0].api_tag, &api_tag);
    EXPECT_TRUE(log.Has("[CallComLogicalLinkEventCBR] ComLogicalLinkEventCBR (0, 0)"));
    EXPECT_FALSE(log.Mentions("-> fallback to"));

    PDURegisterEventCallback(0, hCLL, nullptr);
    PDUDisconnect(0, hCLL);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].callback, 2);
    EXPECT_TRUE(log.Has("[CallComLogicalLinkEventCBR] -> fallback to module"));
    EXPECT_TRUE(log.Has("[CallModuleEventCBR] ModuleEventCBR (0, 0)"));

    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
    PDUConnect(0, hCLL);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[2].callback, 1);
    EXPECT_EQ(calls[2].hMod, 0u);
    EXPECT_EQ(calls[2].hCLL, hCLL);
    EXPECT_EQ(calls[2].cll_tag, &link_tag);
    EXPECT_TRUE(log.Has("[CallModuleEventCBR] -> fallback to system"));
    EXPECT_TRUE(log.Has("[CallModuleEventCBR] SystemEventCBR (0, 0)"));

    PDURegisterEventCallback(PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr);
    PDUDisconnect(0, hCLL);
    EXPECT_EQ(calls.size(), 3u);
}

TEST_F(Events, ThereIsOneModuleCallbackForAllModules) {
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, Callback<1>);
    PDURegisterEventCallback(200, PDU_HANDLE_UNDEF, Callback<2>);
    PDUConnect(0, hCLL);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].callback, 2);
}

TEST_F(Events, RegistrationIsLogged) {
    const LogCapture log;
    const std::string name = "[PDURegisterEventCallback] ";
    EXPECT_EQ(PDURegisterEventCallback(PDU_HANDLE_UNDEF, 3, Callback<1>), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Mentions(name + "Called (4294967295, 3, "));
    EXPECT_TRUE(log.Has(name + "Registered SystemEventCBR"));
    EXPECT_EQ(PDURegisterEventCallback(PDU_HANDLE_UNDEF, 3, nullptr), PDU_STATUS_NOERROR);
    EXPECT_TRUE(log.Has(name + "Deregistered SystemEventCBR"));
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, Callback<1>);
    EXPECT_TRUE(log.Has(name + "Registered ModuleEventCBR"));
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, nullptr);
    EXPECT_TRUE(log.Has(name + "Deregistered ModuleEventCBR"));
    EXPECT_FALSE(log.Has(name + "Returning PDU_ERR_INVALID_HANDLE"));
    EXPECT_EQ(PDURegisterEventCallback(0, 99, Callback<1>), PDU_ERR_INVALID_HANDLE);
    EXPECT_TRUE(log.Has(name + "Registered ComLogicalLinkEventCBR"));
    EXPECT_TRUE(log.Has(name + "Returning PDU_ERR_INVALID_HANDLE"));
    EXPECT_EQ(log.Count(name + "Returning PDU_STATUS_NOERROR"), 4u);
}

TEST_F(Events, SystemAndModuleCallbacksSurviveADestruct) {
    PDURegisterEventCallback(0, PDU_HANDLE_UNDEF, Callback<2>);
    PDURegisterEventCallback(0, hCLL, Callback<3>);
    ASSERT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    SetUp();
    PDUConnect(0, hCLL);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].callback, 2);
}

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

TEST_F(Events, FetchLogsOnlyAMissingPointer) {
    const LogCapture log;
    PDU_EVENT_ITEM* item = nullptr;
    PDUGetEventItem(0, hCLL, &item);
    EXPECT_FALSE(log.Mentions("[PDUGetEventItem]"));  // the link's worker may log meanwhile
    EXPECT_EQ(PDUGetEventItem(0, hCLL, nullptr), PDU_ERR_INVALID_PARAMETERS);
    EXPECT_TRUE(
        log.Has("[PDUGetEventItem] pEventItem is NULL, Returning PDU_ERR_INVALID_PARAMETERS"));
}

TEST_F(Events, DestroyItemNeedsAConstructedLibrary) {
    EXPECT_EQ(PDUDestroyItem(nullptr), PDU_STATUS_NOERROR);
    ASSERT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    const LogCapture log;
    EXPECT_EQ(PDUDestroyItem(nullptr), PDU_ERR_PDUAPI_NOT_CONSTRUCTED);
    EXPECT_TRUE(
        log.Has("[PDUDestroyItem] PDU API not constructed, Returning "
                "PDU_ERR_PDUAPI_NOT_CONSTRUCTED"));
}

TEST_F(Events, DestructReleasesQueuedItems) {
    ASSERT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    const MemoryUse before = LiveMemory();
    SetUp();
    PDUConnect(0, hCLL);
    Queue(&*SystemEventQueue);
    Queue(&ModuleDevices->slots[0].events);
    ASSERT_EQ(PDUDestruct(), PDU_STATUS_NOERROR);
    EXPECT_EQ(LiveMemory().blocks, before.blocks);
    EXPECT_EQ(LiveMemory().bytes, before.bytes);
}

}  // namespace
}  // namespace tarvik::test
