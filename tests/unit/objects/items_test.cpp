#include "objects/items.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/tick.h"
#include "support/memory.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

int tag_target;
void* const kTag = &tag_target;

UNUM8* TrackedBytes(std::initializer_list<UNUM8> bytes) {
    auto* block = static_cast<UNUM8*>(AllocateMem(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), block);
    return block;
}

CHAR8* TrackedText(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    auto* block = static_cast<CHAR8*>(AllocateMem(size));
    std::memcpy(block, text, size);
    return block;
}

template <typename T>
T* TrackedArray(std::size_t count) {
    return static_cast<T*>(AllocateArray(count, sizeof(T)));
}

ResultContent Content(UNUM8* data, std::uint32_t length) {
    return {.hCop = 7,
            .pCoPTag = kTag,
            .unique_resp_identifier = 3,
            .acceptance_id = 42,
            .data = data,
            .data_length = length,
            .tx_done_timestamp = false,
            .rx_flag_byte2 = 0};
}

const PDU_RESULT_DATA& ResultOf(const EventPtr& item) {
    return *static_cast<const PDU_RESULT_DATA*>(item->pData);
}

// Every case gives back all memory.
class MakeItem : public testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(LiveMemory() == before); }

    const MemoryUse before = LiveMemory();
};

// ---- Making ------------------------------------------------------------------------------------

TEST_F(MakeItem, InfoItemBelongsToNoComPrimitive) {
    const EventPtr item = MakeInfoItem(PDU_INFO_MODULE_LIST_CHG);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->ItemType, PDU_IT_INFO);
    EXPECT_EQ(item->hCop, PDU_HANDLE_UNDEF);
    EXPECT_EQ(item->pCoPTag, nullptr);
    const auto* data = static_cast<PDU_INFO_DATA*>(item->pData);
    EXPECT_EQ(data->InfoCode, 0x8070u);
    EXPECT_EQ(data->ExtraInfoData, 0u);
}

TEST_F(MakeItem, TimestampIsTheTickInMicrosecondsCutTo32Bits) {
    const FakeTick tick(4294968);  // 4 294 968 000 microseconds: 704 more than 32 bits hold
    const EventPtr item = MakeErrorItem(1, nullptr, PDU_ERR_EVT_TX_ERROR);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->Timestamp, 704u);
}

TEST_F(MakeItem, ResultItemTakesOverTheDataAndHasNoFlagSet) {
    UNUM8* data = TrackedBytes({0x62, 0xF1, 0x90});
    const EventPtr item = MakeResultItem(Content(data, 3));
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->ItemType, PDU_IT_RESULT);
    EXPECT_EQ(item->hCop, 7u);
    EXPECT_EQ(item->pCoPTag, kTag);
    const PDU_RESULT_DATA& result = ResultOf(item);
    EXPECT_EQ(result.UniqueRespIdentifier, 3u);
    EXPECT_EQ(result.AcceptanceId, 42u);
    EXPECT_EQ(result.pExtraInfo, nullptr);
    EXPECT_EQ(result.NumDataBytes, 3u);
    EXPECT_EQ(result.pDataBytes, data);
    ASSERT_EQ(result.RxFlag.NumFlagBytes, 4u);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(result.RxFlag.pFlagData[i], 0);
    EXPECT_EQ(result.TimestampFlags.NumFlagBytes, 0u);
    EXPECT_EQ(result.TimestampFlags.pFlagData, nullptr);
    EXPECT_EQ(result.TxMsgDoneTimestamp, 0u);
}

TEST_F(MakeItem, ResultWithTransmissionTimeRepeatsTheItemsTimestamp) {
    const FakeTick tick(1234);
    ResultContent content = Content(nullptr, 0);
    content.tx_done_timestamp = true;
    const EventPtr item = MakeResultItem(content);
    ASSERT_NE(item, nullptr);
    const PDU_RESULT_DATA& result = ResultOf(item);
    EXPECT_EQ(result.TimestampFlags.NumFlagBytes, 4u);
    EXPECT_NE(result.TimestampFlags.pFlagData, nullptr);
    EXPECT_EQ(item->Timestamp, 1234000u);
    EXPECT_EQ(result.TxMsgDoneTimestamp, 1234000u);
}

TEST_F(MakeItem, RxFlagMarksA29BitIdentifierInItsThirdByte) {
    ResultContent content = Content(nullptr, 0);
    content.rx_flag_byte2 = PDU_RX_FLAG2_CAN_29BIT_ID;
    const EventPtr item = MakeResultItem(content);
    ASSERT_NE(item, nullptr);
    const UNUM8* flags = ResultOf(item).RxFlag.pFlagData;
    EXPECT_EQ(flags[1], 0);
    EXPECT_EQ(flags[2], 1);
    EXPECT_EQ(flags[3], 0);
}

TEST_F(MakeItem, ResultWithoutMemoryLeavesTheDataToTheCaller) {
    UNUM8* data = TrackedBytes({1, 2, 3});
    ResultContent content = Content(data, 3);
    content.tx_done_timestamp = true;
    const MemoryUse with_data = LiveMemory();
    for (std::uint32_t allowed = 0;; ++allowed) {
        EventPtr item;
        bool refused = false;
        {
            const FailingHeap heap(allowed, 1);
            item = MakeResultItem(content);
            refused = heap.Refused();
        }
        if (!refused) {
            ASSERT_NE(item, nullptr);
            EXPECT_EQ(allowed, 3u);
            return;
        }
        ASSERT_EQ(item, nullptr);
        EXPECT_TRUE(LiveMemory() == with_data);
        EXPECT_EQ(data[2], 3);
    }
}

TEST_F(MakeItem, NoItemIsMadeWithoutMemoryAndNothingLeaks) {
    EventPtr items[4];
    {
        const FailingHeap heap(0);
        items[0] = MakeErrorItem(1, nullptr, 257);
        items[1] = MakeInfoItem(PDU_INFO_MODULE_LIST_CHG);
        items[2] = MakeStatusItem(1, nullptr, PDU_COPST_IDLE);
    }
    {
        const FailingHeap heap(1);
        items[3] = MakeStatusItem(1, nullptr, PDU_COPST_IDLE);
    }
    for (const EventPtr& item : items)
        EXPECT_EQ(item, nullptr);
}

// ---- Releasing ---------------------------------------------------------------------------------

class FreeItem : public testing::Test {
protected:
    // Nothing but the item was allocated since the case began.
    template <typename Item>
    void ExpectReleased(Item* item, const std::vector<std::string>& logged = {}) {
        const LogCapture log;
        FreePduItem(reinterpret_cast<PDU_ITEM*>(item));
        EXPECT_EQ(log.Lines(), logged);
        EXPECT_TRUE(LiveMemory() == before);
    }

    const MemoryUse before = LiveMemory();
};

TEST_F(FreeItem, EventsAreReleasedCompletelyAndOnlyStatusIsLogged) {
    ResultContent content = Content(TrackedBytes({1, 2}), 2);
    content.tx_done_timestamp = true;
    ExpectReleased(MakeResultItem(content).release());
    ExpectReleased(MakeErrorItem(1, nullptr, 257).release());
    ExpectReleased(MakeStatusItem(1, nullptr, PDU_CLLST_ONLINE).release(),
                   {"[FreePduItem] PDU_IT_STATUS"});
}

TEST_F(FreeItem, NullInformationComParamAndUnknownItemsAreLeftAlone) {
    const EventPtr info = MakeInfoItem(PDU_INFO_MODULE_LIST_CHG);
    PDU_PARAM_ITEM param = {PDU_IT_PARAM, 1, PDU_PT_UNUM32, PDU_PC_TIMING, nullptr};
    PDU_ITEM unknown = {0x4711};
    const MemoryUse with_info = LiveMemory();
    const LogCapture log;
    FreePduItem(nullptr);
    FreePduItem(reinterpret_cast<PDU_ITEM*>(info.get()));
    FreePduItem(reinterpret_cast<PDU_ITEM*>(&param));
    FreePduItem(&unknown);
    EXPECT_TRUE(log.Lines().empty()) << log.Text();
    EXPECT_TRUE(LiveMemory() == with_info);
}

TEST_F(FreeItem, ResourceIdsAreReleasedWithTheFirstEntrysArrayIfThereIsOne) {
    auto* item = TrackedArray<PDU_RSC_ID_ITEM>(1);
    auto* entries = TrackedArray<PDU_RSC_ID_ITEM_DATA>(1);
    entries[0] = {1, 2, TrackedArray<UNUM32>(2)};
    *item = {PDU_IT_RSC_ID, 1, entries};
    ExpectReleased(item, {"[FreePduItem] PDU_IT_RSC_ID"});
    item = TrackedArray<PDU_RSC_ID_ITEM>(1);
    *item = {PDU_IT_RSC_ID, 1, nullptr};
    ExpectReleased(item, {"[FreePduItem] PDU_IT_RSC_ID"});
}

TEST_F(FreeItem, ModuleIdsAreReleasedWithEveryTextIfThereAreAny) {
    auto* item = TrackedArray<PDU_MODULE_ITEM>(1);
    auto* modules = TrackedArray<PDU_MODULE_DATA>(2);
    modules[0] = {1, 0, TrackedText("first"), TrackedText("more"), PDU_MODST_AVAIL};
    modules[1] = {1, 1, TrackedText("second"), nullptr, PDU_MODST_AVAIL};
    *item = {PDU_IT_MODULE_ID, 2, modules};
    ExpectReleased(item);
    item = TrackedArray<PDU_MODULE_ITEM>(1);
    *item = {PDU_IT_MODULE_ID, 1, nullptr};
    ExpectReleased(item);
}

// One entry with the given parameter items, all in tracked blocks.
PDU_UNIQUE_RESP_ID_TABLE_ITEM* Table(const std::vector<PDU_PARAM_ITEM>& params) {
    auto* item = TrackedArray<PDU_UNIQUE_RESP_ID_TABLE_ITEM>(1);
    auto* entries = TrackedArray<PDU_ECU_UNIQUE_RESP_DATA>(1);
    auto* copies = TrackedArray<PDU_PARAM_ITEM>(params.size());
    std::copy(params.begin(), params.end(), copies);
    entries[0] = {1, static_cast<UNUM32>(params.size()), copies};
    *item = {PDU_IT_UNIQUE_RESP_ID_TABLE, 1, entries};
    return item;
}

PDU_PARAM_ITEM Param(T_PDU_PT type, void* data) {
    return {PDU_IT_PARAM, 61, type, PDU_PC_UNIQUE_ID, data};
}

const std::vector<std::string> kTableLine = {"[FreePduItem] PDU_IT_UNIQUE_RESP_ID_TABLE"};

TEST_F(FreeItem, TableReleasesNumbersByteFieldsAndStructFields) {
    std::vector<PDU_PARAM_ITEM> params;
    for (T_PDU_PT type = PDU_PT_UNUM8; type <= PDU_PT_SNUM32; ++type) {
        params.push_back(Param(type, TrackedArray<UNUM32>(1)));
    }
    auto* bytes = TrackedArray<PDU_PARAM_BYTEFIELD_DATA>(1);
    *bytes = {4, 4, TrackedArray<UNUM8>(4)};
    params.push_back(Param(PDU_PT_BYTEFIELD, bytes));
    auto* structs = TrackedArray<PDU_PARAM_STRUCTFIELD_DATA>(1);
    *structs = {PDU_CPST_ACCESS_TIMING, 2, 2, TrackedArray<PDU_PARAM_STRUCT_ACCESS_TIMING>(2)};
    params.push_back(Param(PDU_PT_STRUCTFIELD, structs));
    ExpectReleased(Table(params), kTableLine);
}

TEST_F(FreeItem, TableCannotFreeLongFieldsAndUnknownTypes) {
    const LogCapture log;
    auto* words = TrackedArray<PDU_PARAM_LONGFIELD_DATA>(1);
    FreePduItem(reinterpret_cast<PDU_ITEM*>(
        Table({Param(PDU_PT_LONGFIELD, words), Param(0x10A, nullptr), Param(0x100, nullptr)})));
    EXPECT_EQ(log.Count("[FreePduItem] ERROR - cannot free"), 3u);
    FreeMem(words);
    EXPECT_TRUE(LiveMemory() == before);
}

TEST_F(FreeItem, TableWithEmptyFieldsIsReleased) {
    ExpectReleased(Table({Param(PDU_PT_UNUM32, nullptr), Param(PDU_PT_BYTEFIELD, nullptr),
                          Param(PDU_PT_STRUCTFIELD, nullptr)}),
                   kTableLine);
    auto* without_params = TrackedArray<PDU_UNIQUE_RESP_ID_TABLE_ITEM>(1);
    *without_params = {PDU_IT_UNIQUE_RESP_ID_TABLE, 1, TrackedArray<PDU_ECU_UNIQUE_RESP_DATA>(1)};
    *without_params->pUniqueData = {0x100, 2, nullptr};
    ExpectReleased(without_params, kTableLine);
    auto* without_entries = TrackedArray<PDU_UNIQUE_RESP_ID_TABLE_ITEM>(1);
    *without_entries = {PDU_IT_UNIQUE_RESP_ID_TABLE, 1, nullptr};
    ExpectReleased(without_entries, kTableLine);
}

}  // namespace
}  // namespace tarvik::test
