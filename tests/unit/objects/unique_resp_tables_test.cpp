#include "objects/unique_resp_tables.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "comparam/comparam_table.h"
#include "comparam/comparams.h"
#include "dpdu_api.h"
#include "objects/items.h"
#include "support/memory.h"
#include "unit/faults/heap_fault.h"
#include "unit/test_support.h"

namespace tarvik::test {
namespace {

using Strings = std::vector<std::string>;
using TableItem = PDU_UNIQUE_RESP_ID_TABLE_ITEM;
using Entry = PDU_ECU_UNIQUE_RESP_DATA;

constexpr UNUM32 kEcuLayerShortName = 228;  // byte field of class PDU_PC_UNIQUE_ID

void Destroy(TableItem* table) { FreePduItem(reinterpret_cast<PDU_ITEM*>(table)); }

PDU_PARAM_ITEM Param(UNUM32 id, T_PDU_PT type, void* data) {
    return {PDU_IT_PARAM, id, type, PDU_PC_UNIQUE_ID, data};
}

template <typename T>
const T& ValueOf(const PDU_PARAM_ITEM& param) {
    return *static_cast<const T*>(param.pComParamData);
}

// An application's table; its arrays are the vectors'.
struct AppTable {
    explicit AppTable(std::vector<Entry>& entries)
        : item{PDU_IT_UNIQUE_RESP_ID_TABLE, static_cast<UNUM32>(entries.size()), entries.data()} {}
    TableItem item;
};

Entry EntryOf(UNUM32 identifier, std::vector<PDU_PARAM_ITEM>& params) {
    return {identifier, static_cast<UNUM32>(params.size()), params.data()};
}

class UniqueRespTables : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(AllocParamItems());
        before_ = LiveMemory();
    }
    void TearDown() override {
        EXPECT_TRUE(LiveMemory() == before_);
        FreeParamItems();
    }

private:
    MemoryUse before_{};
};

// ---- Creating -----------------------------------------------------------------------------------

TEST_F(UniqueRespTables, SnapshotIgnoresABufferReplacedInPlace) {
    UNUM8 mine = 1;
    auto* field =
        static_cast<PDU_PARAM_BYTEFIELD_DATA*>(ComParamItem(kEcuLayerShortName)->pComParamData);
    *field = {1000, 1000, &mine};
    TableItem* table = CreatePduUniqueResponseTable();
    ASSERT_NE(table, nullptr);
    const auto& copy = ValueOf<PDU_PARAM_BYTEFIELD_DATA>(table->pUniqueData->pParams[23]);
    EXPECT_EQ(copy.ParamMaxLen, 12u);
    EXPECT_EQ(copy.ParamActLen, 12u);
    EXPECT_EQ(copy.pDataArray[0], 0);
    Destroy(table);
}

TEST(UnpreparedUniqueRespTables, CanBeCreated) {
    const MemoryUse before = LiveMemory();
    TableItem* table = CreatePduUniqueResponseTable();
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->pUniqueData->NumParamItems, 24u);
    EXPECT_EQ(RequestedSize(table->pUniqueData->pParams), 24 * sizeof(PDU_PARAM_ITEM));
    Destroy(table);
    EXPECT_TRUE(LiveMemory() == before);
}

TEST_F(UniqueRespTables, CreationWithoutMemoryLeaksNothing) {
    const MemoryUse before = LiveMemory();
    // Item, entry, parameters, 22 numbers, the record and the bytes of two byte fields.
    constexpr std::uint32_t kBlocks = 3 + 22 + 2 * 2;
    for (std::uint32_t allowed = 0; allowed < kBlocks; ++allowed) {
        TableItem* table = nullptr;
        {
            const FailingHeap heap(allowed);
            table = CreatePduUniqueResponseTable();
        }
        EXPECT_EQ(table, nullptr) << allowed;
        EXPECT_TRUE(LiveMemory() == before) << allowed;
        {
            const FailingHeap heap(allowed, 1);
            table = CreatePduUniqueResponseTable();
        }
        EXPECT_EQ(table, nullptr) << allowed;
        EXPECT_TRUE(LiveMemory() == before) << allowed;
    }
    TableItem* table = nullptr;
    {
        const FailingHeap heap(kBlocks);
        table = CreatePduUniqueResponseTable();
    }
    EXPECT_NE(table, nullptr);
    Destroy(table);
}

// ---- Duplicating --------------------------------------------------------------------------------

TEST_F(UniqueRespTables, DuplicateOfNullIsNull) {
    EXPECT_EQ(DuplicatePduUniqueResponseTable(nullptr), nullptr);
}

TEST_F(UniqueRespTables, DuplicateCopiesEveryNumberType) {
    UNUM8 u8 = 0x81;
    SNUM8 s8 = -2;
    UNUM16 u16 = 0x8001;
    SNUM16 s16 = -300;
    UNUM32 u32 = 0x80000001u;
    SNUM32 s32 = -70000;
    std::vector<PDU_PARAM_ITEM> params = {
        Param(59, PDU_PT_UNUM8, &u8),   Param(60, PDU_PT_SNUM8, &s8),
        Param(61, PDU_PT_UNUM16, &u16), Param(62, PDU_PT_SNUM16, &s16),
        Param(63, PDU_PT_UNUM32, &u32), Param(64, PDU_PT_SNUM32, &s32)};
    params[0].ItemType = 0;       // whatever the application left here
    params[1].ComParamClass = 3;  // kept as it is
    std::vector<Entry> entries = {EntryOf(77, params)};
    const AppTable source(entries);

    TableItem* copy = DuplicatePduUniqueResponseTable(&source.item);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->ItemType, PDU_IT_UNIQUE_RESP_ID_TABLE);
    ASSERT_EQ(copy->NumEntries, 1u);
    const Entry& entry = *copy->pUniqueData;
    EXPECT_EQ(entry.UniqueRespIdentifier, 77u);
    ASSERT_EQ(entry.NumParamItems, 6u);
    for (UNUM32 i = 0; i < 6; ++i) {
        EXPECT_EQ(entry.pParams[i].ItemType, PDU_IT_PARAM);
        EXPECT_EQ(entry.pParams[i].ComParamId, params[i].ComParamId);
        EXPECT_EQ(entry.pParams[i].ComParamDataType, params[i].ComParamDataType);
        EXPECT_EQ(entry.pParams[i].ComParamClass, params[i].ComParamClass);
        EXPECT_NE(entry.pParams[i].pComParamData, params[i].pComParamData);
    }
    EXPECT_EQ(ValueOf<UNUM8>(entry.pParams[0]), u8);
    EXPECT_EQ(ValueOf<SNUM8>(entry.pParams[1]), s8);
    EXPECT_EQ(ValueOf<UNUM16>(entry.pParams[2]), u16);
    EXPECT_EQ(ValueOf<SNUM16>(entry.pParams[3]), s16);
    EXPECT_EQ(ValueOf<UNUM32>(entry.pParams[4]), u32);
    EXPECT_EQ(ValueOf<SNUM32>(entry.pParams[5]), s32);
    EXPECT_EQ(RequestedSize(entry.pParams[0].pComParamData), 1u);
    EXPECT_EQ(RequestedSize(entry.pParams[2].pComParamData), 2u);
    EXPECT_EQ(RequestedSize(entry.pParams[4].pComParamData), 4u);
    Destroy(copy);
}

TEST_F(UniqueRespTables, ByteFieldIsNotReadBeyondItsMaximum) {
    UNUM8 bytes[] = {1, 2, 3, 4, 5};  // the last three are not the field's
    PDU_PARAM_BYTEFIELD_DATA longer = {2, 5, bytes};
    PDU_PARAM_BYTEFIELD_DATA missing = {2, 5, nullptr};
    std::vector<PDU_PARAM_ITEM> params = {Param(228, PDU_PT_BYTEFIELD, &longer),
                                          Param(228, PDU_PT_BYTEFIELD, &missing)};
    std::vector<Entry> entries = {EntryOf(1, params)};
    const AppTable source(entries);
    TableItem* copy = DuplicatePduUniqueResponseTable(&source.item);
    ASSERT_NE(copy, nullptr);
    const PDU_PARAM_ITEM* made = copy->pUniqueData->pParams;
    EXPECT_EQ(ValueOf<PDU_PARAM_BYTEFIELD_DATA>(made[0]).ParamMaxLen, 2u);
    EXPECT_EQ(ValueOf<PDU_PARAM_BYTEFIELD_DATA>(made[0]).ParamActLen, 5u);
    const UNUM8* copied = ValueOf<PDU_PARAM_BYTEFIELD_DATA>(made[0]).pDataArray;
    EXPECT_EQ(std::vector<UNUM8>(copied, copied + 5), (std::vector<UNUM8>{1, 2, 0, 0, 0}));
    EXPECT_EQ(ValueOf<PDU_PARAM_BYTEFIELD_DATA>(made[1]).pDataArray[4], 0);
    Destroy(copy);
}

TEST_F(UniqueRespTables, FirstEntryOwnsTheParametersOfAllEntries) {
    UNUM32 values[] = {1, 2, 3};
    std::vector<PDU_PARAM_ITEM> none;
    std::vector<PDU_PARAM_ITEM> one = {Param(61, PDU_PT_UNUM32, &values[0])};
    std::vector<PDU_PARAM_ITEM> two = {Param(61, PDU_PT_UNUM32, &values[1]),
                                       Param(64, PDU_PT_UNUM32, &values[2])};
    std::vector<Entry> entries = {EntryOf(10, none), EntryOf(11, one), EntryOf(12, two)};
    const AppTable source(entries);
    TableItem* copy = DuplicatePduUniqueResponseTable(&source.item);
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(copy->NumEntries, 3u);
    const Entry* made = copy->pUniqueData;
    EXPECT_EQ(made[0].NumParamItems, 0u);
    EXPECT_EQ(made[1].NumParamItems, 1u);
    EXPECT_EQ(made[2].NumParamItems, 2u);
    EXPECT_EQ(RequestedSize(made[0].pParams), 3 * sizeof(PDU_PARAM_ITEM));
    EXPECT_EQ(made[1].pParams, made[0].pParams);
    EXPECT_EQ(made[2].pParams, made[0].pParams + 1);
    EXPECT_EQ(ValueOf<UNUM32>(made[2].pParams[1]), 3u);
    EXPECT_EQ(made[2].UniqueRespIdentifier, 12u);
    Destroy(copy);
}

TEST_F(UniqueRespTables, OneParameterIsCopied) {
    UNUM32 value = 7;
    std::vector<PDU_PARAM_ITEM> params = {Param(61, PDU_PT_UNUM32, &value)};
    std::vector<Entry> entries = {EntryOf(1, params)};
    const AppTable source(entries);
    TableItem* copy = DuplicatePduUniqueResponseTable(&source.item);
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(copy->pUniqueData->NumParamItems, 1u);
    EXPECT_EQ(*static_cast<UNUM32*>(copy->pUniqueData->pParams->pComParamData), 7u);
    Destroy(copy);
}

TEST_F(UniqueRespTables, EmptyTablesAreCopied) {
    const TableItem tables[] = {{PDU_IT_UNIQUE_RESP_ID_TABLE, 0, nullptr},
                                {PDU_IT_UNIQUE_RESP_ID_TABLE, 5, nullptr}};
    for (const TableItem& source : tables) {
        TableItem* copy = DuplicatePduUniqueResponseTable(&source);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->NumEntries, 0u);
        EXPECT_EQ(copy->pUniqueData, nullptr);
        TableItem* second = DuplicatePduUniqueResponseTable(copy);
        EXPECT_NE(second, nullptr);
        Destroy(second);
        Destroy(copy);
    }
}

TEST_F(UniqueRespTables, MissingArraysAndValuesAreCopiedAsMissing) {
    std::vector<PDU_PARAM_ITEM> params = {Param(61, PDU_PT_UNUM32, nullptr),
                                          Param(228, PDU_PT_BYTEFIELD, nullptr)};
    std::vector<Entry> entries = {{1, 4, nullptr}, EntryOf(2, params)};
    const AppTable source(entries);
    TableItem* copy = DuplicatePduUniqueResponseTable(&source.item);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->pUniqueData[0].NumParamItems, 0u);
    ASSERT_EQ(copy->pUniqueData[1].NumParamItems, 2u);
    EXPECT_EQ(copy->pUniqueData[1].pParams[0].pComParamData, nullptr);
    EXPECT_EQ(copy->pUniqueData[1].pParams[1].pComParamData, nullptr);
    Destroy(copy);
}

TEST_F(UniqueRespTables, ParametersThatCannotBeCopiedOrReleasedAreLogged) {
    UNUM32 value = 1;
    std::vector<PDU_PARAM_ITEM> none;
    std::vector<PDU_PARAM_ITEM> params = {Param(61, PDU_PT_UNUM32, &value),
                                          Param(72, PDU_PT_STRUCTFIELD, nullptr),
                                          Param(128, PDU_PT_LONGFIELD, nullptr)};
    std::vector<Entry> entries = {EntryOf(1, none), EntryOf(2, params)};
    const AppTable source(entries);
    const std::string not_copied = "[DuplicatePduUniqueResponseTable] ERROR - cannot duplicate";
    {
        const LogCapture log;
        TableItem* copy = DuplicatePduUniqueResponseTable(&source.item);
        ASSERT_NE(copy, nullptr);
        EXPECT_EQ(copy->pUniqueData[1].NumParamItems, 3u);
        Destroy(copy);
        EXPECT_EQ(log.Lines(),
                  (Strings{not_copied, not_copied, "[FreePduItem] PDU_IT_UNIQUE_RESP_ID_TABLE",
                           "[FreePduItem] ERROR - cannot free"}));
    }
    // The same lines for a table that is only used as if it were copied.
    const LogCapture log;
    { const LoggedTableCopy copy(source.item); }
    EXPECT_EQ(log.Lines(),
              (Strings{not_copied, not_copied, "[FreePduItem] PDU_IT_UNIQUE_RESP_ID_TABLE",
                       "[FreePduItem] ERROR - cannot free"}));
}

TEST_F(UniqueRespTables, VerboseLinesAreNeverWritten) {
    const LogCapture log;
    TableItem* table = CreatePduUniqueResponseTable();
    TableItem* copy = DuplicatePduUniqueResponseTable(table);
    EXPECT_TRUE(log.Lines().empty()) << log.Text();
    Destroy(copy);
    Destroy(table);
}

TEST_F(UniqueRespTables, DuplicationWithoutMemoryLeaksNothing) {
    UNUM32 value = 1;
    UNUM8 byte = 2;
    PDU_PARAM_BYTEFIELD_DATA field = {1, 1, &byte};
    std::vector<PDU_PARAM_ITEM> params = {Param(61, PDU_PT_UNUM32, &value),
                                          Param(228, PDU_PT_BYTEFIELD, &field)};
    std::vector<Entry> entries = {EntryOf(1, params), EntryOf(2, params)};
    const AppTable source(entries);
    const MemoryUse before = LiveMemory();
    constexpr std::uint32_t kBlocks = 3 + 2 * 3;
    for (std::uint32_t allowed = 0; allowed < kBlocks; ++allowed) {
        TableItem* copy = nullptr;
        {
            const FailingHeap heap(allowed);
            copy = DuplicatePduUniqueResponseTable(&source.item);
        }
        EXPECT_EQ(copy, nullptr) << allowed;
        EXPECT_TRUE(LiveMemory() == before) << allowed;
    }
}

// ---- Sharing ------------------------------------------------------------------------------------

TEST_F(UniqueRespTables, SharedTableLivesUntilItsLastReferenceIsReleased) {
    Ref<UniqueRespTable> table = UniqueRespTable::Adopt(CreatePduUniqueResponseTable());
    ASSERT_TRUE(table);
    const Ref<UniqueRespTable> second = table;
    table.Reset();
    EXPECT_EQ(second->Item().NumEntries, 1u);
    EXPECT_EQ(second->Item().pUniqueData->NumParamItems, 24u);
}

TEST_F(UniqueRespTables, AdoptingNullGivesNoTable) {
    EXPECT_FALSE(UniqueRespTable::Adopt(nullptr));
}

TEST_F(UniqueRespTables, AdoptionWithoutMemoryReleasesTheItem) {
    TableItem* item = CreatePduUniqueResponseTable();
    Ref<UniqueRespTable> table;
    {
        const FailingHeap heap;
        table = UniqueRespTable::Adopt(item);
    }
    EXPECT_FALSE(table);  // TearDown checks that the item was released
}

TEST_F(UniqueRespTables, ReferencesMayBeReleasedOnAnyThread) {
    Ref<UniqueRespTable> table = UniqueRespTable::Adopt(CreatePduUniqueResponseTable());
    ASSERT_TRUE(table);
    Thread a([first = table]() mutable { first.Reset(); });
    Thread b([second = table]() mutable {
        const Ref<UniqueRespTable> third = second;
        second.Reset();
    });
    table.Reset();
}

// ---- Dumping ------------------------------------------------------------------------------------

TEST_F(UniqueRespTables, DumpOfMalformedTablesSkipsWhatIsMissing) {
    std::vector<PDU_PARAM_ITEM> params = {Param(61, 0x10A, nullptr),
                                          Param(62, PDU_PT_UNUM32, nullptr)};
    std::vector<Entry> entries = {{1, 3, nullptr}, EntryOf(2, params)};
    const AppTable table(entries);
    const TableItem without_entries = {PDU_IT_UNIQUE_RESP_ID_TABLE, 3, nullptr};
    const LogCapture log;
    DumpRespIdTable(&table.item);
    DumpRespIdTable(&without_entries);
    DumpRespIdTable(nullptr);
    const Strings expected = {
        "[DumpRespIdTable]",
        "[DumpRespIdTable]  Table 0",
        "[DumpRespIdTable]  Table 1",
        "[DumpRespIdTable]    'CP_CanPhysReqId' = (unknown) ",
        "[DumpRespIdTable]    'CP_CanRespUSDTExtAddr' = (unknown) ",
        "[DumpRespIdTable]",
        "[DumpRespIdTable]",
    };
    EXPECT_EQ(log.Lines(), expected);
}

// ---- Overriding ---------------------------------------------------------------------------------

TEST_F(UniqueRespTables, EntryOverridesOnlyTheComParamsItHas) {
    UNUM32 id = 0x7E0;
    UNUM32 later = 0x7E1;
    UNUM16 resp = 0x7E8;
    std::vector<PDU_PARAM_ITEM> params = {Param(kCpCanPhysReqId, PDU_PT_UNUM32, &id),
                                          Param(kCpCanPhysReqId, PDU_PT_UNUM32, &later),
                                          Param(kCpCanRespUSDTId, PDU_PT_UNUM16, &resp)};
    const Entry entry = EntryOf(1, params);
    UNUM32 value = 5;
    OverrideFromEntry(entry, kCpCanPhysReqId, &value);
    EXPECT_EQ(value, 0x7E0u);
    OverrideFromEntry(entry, kCpCanRespUSDTId, &value);
    EXPECT_EQ(value, 0x7E8u);
    OverrideFromEntry(entry, kCpCanFuncReqId, &value);
    EXPECT_EQ(value, 0x7E8u);
    OverrideFromEntry({1, 3, nullptr}, kCpCanPhysReqId, &value);
    EXPECT_EQ(value, 0x7E8u);
}

}  // namespace
}  // namespace tarvik::test
