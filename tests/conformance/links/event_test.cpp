#include <cstdint>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/trace_file.h"

using namespace conformance;

namespace {

using Events = SerialDongle;

}  // namespace

TEST_F(Events, NullDestinationIsRefused) {
    const LogCapture log;
    EXPECT_EQ(Pdu().PDUGetEventItem(hMod, 0, nullptr), PDU_ERR_INVALID_PARAMETERS);
    EXPECT_TRUE(
        log.Has("[PDUGetEventItem] pEventItem is NULL, Returning PDU_ERR_INVALID_PARAMETERS"));
}

TEST_F(Events, EmptyQueuesReturnNothingAndClearTheDestination) {
    const Link link(hMod);
    for (const UNUM32 hCLL : {link.hCLL(), PDU_HANDLE_UNDEF, 99u}) {
        auto* event = reinterpret_cast<PDU_EVENT_ITEM*>(0x1234);
        EXPECT_EQ(Pdu().PDUGetEventItem(hMod, hCLL, &event), PDU_ERR_EVENT_QUEUE_EMPTY);
        EXPECT_EQ(event, nullptr);
    }
}

TEST_F(Events, OfALinkComeOnlyFromItsQueue) {
    Link link(hMod);
    Link other(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    EXPECT_EQ(NextEvent(PDU_HANDLE_UNDEF, link.hCLL()), nullptr);  // the system's queue
    EXPECT_EQ(NextEvent(hMod, PDU_HANDLE_UNDEF), nullptr);         // the module's
    EXPECT_EQ(NextEvent(hMod, 99), nullptr);                       // no such link: the module's
    EXPECT_EQ(NextEvent(hMod, other.hCLL()), nullptr);
    EXPECT_NE(NextEvent(hMod, link.hCLL()), nullptr);
    EXPECT_EQ(NextEvent(hMod, link.hCLL()), nullptr);
}

TEST_F(Events, OfADestroyedLinkAreGone) {
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    link.Destroy();
    EXPECT_EQ(NextEvent(hMod, link.hCLL()), nullptr);
}

TEST_F(Events, HandlesOutsideTheTablesReturnNothing) {
    for (const UNUM32 module : {1u, 255u, 256u, 0xFFFFFFFEu}) {
        EXPECT_EQ(NextEvent(module, 0), nullptr);
        EXPECT_EQ(NextEvent(module, PDU_HANDLE_UNDEF), nullptr);
    }
}

TEST_F(Events, StatusItemIsReleasedWithALogLine) {
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    auto event = NextEvent(hMod, link.hCLL());
    ASSERT_NE(event, nullptr);
    const LogCapture log;
    event.reset();
    EXPECT_TRUE(log.Has("[FreePduItem] PDU_IT_STATUS"));
}

TEST_F(Events, InformationItemAndUnknownItemAreAcceptedAndNotReleased) {
    PDU_INFO_DATA info = {PDU_INFO_MODULE_LIST_CHG, 0};
    PDU_EVENT_ITEM item = {PDU_IT_INFO, PDU_HANDLE_UNDEF, nullptr, 0, &info};
    EXPECT_EQ(Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(&item)), PDU_STATUS_NOERROR);
    PDU_ITEM unknown = {0x4242};
    EXPECT_EQ(Pdu().PDUDestroyItem(&unknown), PDU_STATUS_NOERROR);
    EXPECT_EQ(Pdu().PDUDestroyItem(nullptr), PDU_STATUS_NOERROR);
    EXPECT_EQ(info.InfoCode, PDU_INFO_MODULE_LIST_CHG);
}

TEST_F(Events, ReleaseOfEventItemsIsTraced) {
    ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
    ASSERT_NO_FATAL_FAILURE(Construct(Settings{.enableCopTrace = true, .useSerial = true}));
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    ASSERT_NE(NextEvent(hMod, link.hCLL()), nullptr);
    const auto released = WaitForTrace("item_destroy", 1);
    ASSERT_EQ(released.size(), 1u);
    EXPECT_EQ(released[0]["itemType"], PDU_IT_STATUS);
    EXPECT_EQ(released[0]["hCoP"], PDU_HANDLE_UNDEF);
}

TEST_F(Events, LeftInTheQueuesAreReleasedByDestruct) {
    for (int round = 0; round < 3; ++round) {
        {
            Link link(hMod);
            for (int i = 0; i < 50; ++i) {
                link.Connect();
                link.Disconnect();
            }
        }
        ASSERT_EQ(Pdu().PDUDestruct(), PDU_STATUS_NOERROR);
        ASSERT_NO_FATAL_FAILURE(Construct(Settings{.useSerial = true}));
    }
}
