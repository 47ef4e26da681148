#include <vector>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"

using namespace conformance;

namespace {

using Resources = ConstructedLibrary;

struct Row {
    UNUM32 bus_type;
    UNUM32 protocol;
    std::vector<UNUM32> ids;
    const char* line;
};

constexpr char kCan[] = "[PDUGetResourceIds]   Returning CAN resource ID: 2001";
constexpr char kDoip[] = "[PDUGetResourceIds]   Returning DoIP resource ID: 2002";
constexpr char kAll[] = "[PDUGetResourceIds]   Returning all resources: 2001 (CAN), 2002 (DoIP)";
constexpr char kNone[] = "[PDUGetResourceIds]   No matching resources found";

ItemPtr<PDU_RSC_ID_ITEM> Ask(UNUM32 hMod, PDU_RSC_DATA data) {
    PDU_RSC_ID_ITEM* item = nullptr;
    EXPECT_EQ(Pdu().PDUGetResourceIds(hMod, &data, &item), PDU_STATUS_NOERROR);
    return ItemPtr<PDU_RSC_ID_ITEM>(item);
}

std::vector<UNUM32> Ids(const PDU_RSC_ID_ITEM& item) {
    const PDU_RSC_ID_ITEM_DATA& entry = item.pResourceIdDataArray[0];
    return {entry.pResourceIdArray, entry.pResourceIdArray + entry.NumIds};
}

}  // namespace

TEST_F(Resources, AreChosenByBusTypeAndProtocolAndDoipWins) {
    const Row rows[] = {
        {4000, 3000, {2001}, kCan},  {4000, 0, {2001}, kCan},     {0, 3000, {2001}, kCan},
        {4001, 3001, {2002}, kDoip}, {4001, 0, {2002}, kDoip},    {0, 3001, {2002}, kDoip},
        {4000, 3001, {2002}, kDoip}, {4001, 3000, {2002}, kDoip}, {0, 0, {2001, 2002}, kAll},
        {7, 0, {}, kNone},           {0, 7, {}, kNone},           {4002, 3002, {}, kNone},
        {7, 3000, {2001}, kCan},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << row.bus_type << ", " << row.protocol);
        const LogCapture log;
        const auto item = Ask(0, {row.bus_type, row.protocol, 0, nullptr});
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(item->ItemType, PDU_IT_RSC_ID);
        ASSERT_EQ(item->NumModules, 1u);
        EXPECT_EQ(Ids(*item), row.ids);
        EXPECT_TRUE(log.Has(row.line)) << log.Text();
    }
}

TEST_F(Resources, HandleIsReturnedUnchecked) {
    for (const UNUM32 hMod : {0u, 77u, 256u, PDU_HANDLE_UNDEF}) {
        const auto item = Ask(hMod, {0, 0, 0, nullptr});
        EXPECT_EQ(item->pResourceIdDataArray[0].hMod, hMod);
    }
}

TEST_F(Resources, PinsAreLoggedByTheirNumberAndIgnored) {
    PDU_PIN_DATA pins[] = {{6, 0}, {14, 1}};
    const LogCapture log;
    EXPECT_EQ(Ids(*Ask(3, {4000, 3000, 2, pins})), std::vector<UNUM32>{2001});
    EXPECT_TRUE(
        log.Has("[PDUGetResourceIds] (3, BusTypeId: 4000, ProtocolId: 3000, NumPinData: 2)"));
}

TEST_F(Resources, NullResourceDataReturnsAll) {
    PDU_RSC_ID_ITEM* item = nullptr;
    ASSERT_EQ(Pdu().PDUGetResourceIds(0, nullptr, &item), PDU_STATUS_NOERROR);
    EXPECT_EQ(Ids(*ItemPtr<PDU_RSC_ID_ITEM>(item)), (std::vector<UNUM32>{2001, 2002}));
}

TEST_F(Resources, ReleaseIsLogged) {
    auto item = Ask(0, {0, 0, 0, nullptr});
    const LogCapture log;
    item.reset();
    EXPECT_TRUE(log.Has("[FreePduItem] PDU_IT_RSC_ID"));
}
