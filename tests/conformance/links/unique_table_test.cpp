#include <cstring>
#include <string>
#include <vector>

#include "conformance/framework/fixtures.h"
#include "conformance/framework/items.h"
#include "conformance/framework/log_file.h"
#include "conformance/framework/params.h"

using namespace conformance;

namespace {

using UniqueTables = SerialDongle;

T_PDU_ERROR Install(const Link& link, PDU_UNIQUE_RESP_ID_TABLE_ITEM* table) {
    return Pdu().PDUSetUniqueRespIdTable(link.hMod(), link.hCLL(), table);
}

ItemPtr<PDU_UNIQUE_RESP_ID_TABLE_ITEM> TableOf(const Link& link) {
    return GetUniqueTable(link.hMod(), link.hCLL());
}

PDU_PARAM_ITEM* ParamOf(PDU_UNIQUE_RESP_ID_TABLE_ITEM& table, UNUM32 entry, UNUM32 id) {
    PDU_ECU_UNIQUE_RESP_DATA& data = table.pUniqueData[entry];
    for (UNUM32 i = 0; i < data.NumParamItems; ++i) {
        if (data.pParams[i].ComParamId == id) return &data.pParams[i];
    }
    return nullptr;
}

const PDU_PARAM_BYTEFIELD_DATA& ByteFieldOf(const PDU_PARAM_ITEM& param) {
    return *static_cast<const PDU_PARAM_BYTEFIELD_DATA*>(param.pComParamData);
}

}  // namespace

TEST_F(UniqueTables, NewLinkHasOneUndefinedEntryWithEveryUniqueIdParam) {
    SetNumber("CP_CanPhysReqId", 0x700);
    SetBytes("CP_ECULayerShortName", {'E', 'C', 'U'});
    const Link link(hMod);
    SetNumber("CP_CanPhysReqId", 0x701);  // too late for this link
    const auto table = TableOf(link);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->ItemType, PDU_IT_UNIQUE_RESP_ID_TABLE);
    ASSERT_EQ(table->NumEntries, 1u);
    EXPECT_EQ(table->pUniqueData[0].UniqueRespIdentifier, 0xFFFFFFFEu);
    std::vector<UNUM32> ids;
    for (UNUM32 i = 0; i < table->pUniqueData[0].NumParamItems; ++i) {
        const PDU_PARAM_ITEM& param = table->pUniqueData[0].pParams[i];
        EXPECT_EQ(param.ItemType, PDU_IT_PARAM);
        EXPECT_EQ(param.ComParamClass, PDU_PC_UNIQUE_ID);
        PDU_PARAM_ITEM* row = nullptr;
        ASSERT_EQ(Pdu().PDUGetComParam(0, 0, param.ComParamId, &row), PDU_STATUS_NOERROR);
        EXPECT_EQ(param.ComParamDataType, row->ComParamDataType) << param.ComParamId;
        EXPECT_NE(param.pComParamData, nullptr);
        ids.push_back(param.ComParamId);
    }
    EXPECT_EQ(ids, (std::vector<UNUM32>{59, 60, 61,  62,  63,  64,  65,  66,  67,  70,  78,  79,
                                        91, 94, 101, 157, 159, 160, 161, 162, 181, 201, 202, 228}));
    EXPECT_EQ(TableValue(*table, 0, "CP_CanPhysReqId"), 0x700u);
    const auto& name = ByteFieldOf(*ParamOf(*table, 0, 228));
    EXPECT_EQ(name.ParamMaxLen, 12u);
    EXPECT_EQ(name.ParamActLen, 3u);
    EXPECT_EQ(std::memcmp(name.pDataArray, "ECU", 3), 0);
}

TEST_F(UniqueTables, CopyBelongsToTheApplication) {
    const Link link(hMod);
    UniqueTable own;
    own.ControlUnit(1, 0x7E0, 0x7E8);
    ASSERT_EQ(Install(link, own.Item()), PDU_STATUS_NOERROR);
    auto first = TableOf(link);
    auto second = TableOf(link);
    EXPECT_NE(first->pUniqueData, second->pUniqueData);
    UNUM32 changed = 0x111;
    std::memcpy(ParamOf(*first, 0, ParamId("CP_CanPhysReqId"))->pComParamData, &changed,
                sizeof changed);
    first.reset();
    EXPECT_EQ(TableValue(*second, 0, "CP_CanPhysReqId"), 0x7E0u);
    EXPECT_EQ(TableValue(*TableOf(link), 0, "CP_CanPhysReqId"), 0x7E0u);
}

TEST_F(UniqueTables, SetCopiesAndDumpsTheCallersTable) {
    const Link link(hMod);
    const LogCapture log;
    {
        UniqueTable own;
        own.ControlUnit(11, 0x7E0, 0x7E8).ControlUnit(22, 0x7E1, 0x7E9);
        ASSERT_EQ(Install(link, own.Item()), PDU_STATUS_NOERROR);
    }
    EXPECT_TRUE(log.Has("[PDUSetUniqueRespIdTable] Called (hMod=0, hCLL=0, entries=2)"));
    EXPECT_EQ(log.LinesOf("DumpRespIdTable"),
              (std::vector<std::string>{
                  "[DumpRespIdTable]",
                  "[DumpRespIdTable]  Table 0",
                  "[DumpRespIdTable]    'CP_CanPhysReqId' = 2016 (0x000007E0)",
                  "[DumpRespIdTable]    'CP_CanRespUSDTId' = 2024 (0x000007E8)",
                  "[DumpRespIdTable]  Table 1",
                  "[DumpRespIdTable]    'CP_CanPhysReqId' = 2017 (0x000007E1)",
                  "[DumpRespIdTable]    'CP_CanRespUSDTId' = 2025 (0x000007E9)",
              }));
    const auto table = TableOf(link);
    ASSERT_EQ(table->NumEntries, 2u);
    EXPECT_EQ(table->pUniqueData[0].UniqueRespIdentifier, 11u);
    EXPECT_EQ(table->pUniqueData[1].UniqueRespIdentifier, 22u);
    EXPECT_EQ(TableValue(*table, 1, "CP_CanRespUSDTId"), 0x7E9u);
}

TEST_F(UniqueTables, GetIsLogged) {
    const Link link(hMod);
    const LogCapture log;
    TableOf(link);
    EXPECT_TRUE(log.Has("[PDUGetUniqueRespIdTable] Called (hMod=0, hCLL=0)"));
    EXPECT_TRUE(log.Has("[FreePduItem] PDU_IT_UNIQUE_RESP_ID_TABLE"));
    EXPECT_EQ(GetUniqueTable(hMod, 99), nullptr);
    EXPECT_TRUE(log.Has("[PDUGetUniqueRespIdTable] Returning PDU_ERR_INVALID_HANDLE"));
}

TEST_F(UniqueTables, GetWithoutAPointerIsRefused) {
    const Link link(hMod);
    const LogCapture log;
    EXPECT_EQ(Pdu().PDUGetUniqueRespIdTable(hMod, link.hCLL(), nullptr),
              PDU_ERR_INVALID_PARAMETERS);
    EXPECT_TRUE(
        log.Has("[PDUGetUniqueRespIdTable] pUniqueRespIdTable is NULL, Returning "
                "PDU_ERR_INVALID_PARAMETERS"));
    EXPECT_EQ(Pdu().PDUGetUniqueRespIdTable(hMod, 99, nullptr), PDU_ERR_INVALID_HANDLE);
    EXPECT_NE(TableOf(link), nullptr);  // nobody keeps the link's mutex
}

TEST_F(UniqueTables, ItemsOutsideTheTableOfComParamsAreNotDumped) {
    const Link link(hMod);
    UniqueTable own;
    own.ControlUnit(1, 0x7E0, 0x7E8);
    UNUM32 value = 5;
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* item = own.Item();
    PDU_PARAM_ITEM params[] = {{PDU_IT_PARAM, 0, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, &value},
                               {PDU_IT_PARAM, 229, PDU_PT_UNUM32, PDU_PC_UNIQUE_ID, &value}};
    item->pUniqueData[0].NumParamItems = 2;
    item->pUniqueData[0].pParams = params;
    const LogCapture log;
    ASSERT_EQ(Install(link, item), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.LinesOf("DumpRespIdTable"),
              (std::vector<std::string>{"[DumpRespIdTable]", "[DumpRespIdTable]  Table 0"}));
}

TEST_F(UniqueTables, CanBeEditedInPlaceAndSetWithTheSamePointer) {
    const Link link(hMod);
    auto table = TableOf(link);
    table->pUniqueData[0].UniqueRespIdentifier = 77;
    UNUM32 request_id = 0x713;
    std::memcpy(ParamOf(*table, 0, ParamId("CP_CanPhysReqId"))->pComParamData, &request_id,
                sizeof request_id);
    ASSERT_EQ(Install(link, table.get()), PDU_STATUS_NOERROR);
    table.reset();
    const auto again = TableOf(link);
    EXPECT_EQ(again->pUniqueData[0].UniqueRespIdentifier, 77u);
    EXPECT_EQ(again->pUniqueData[0].NumParamItems, 24u);
    EXPECT_EQ(TableValue(*again, 0, "CP_CanPhysReqId"), 0x713u);
}

TEST_F(UniqueTables, ByteFieldsAreDumpedAndCopiedWhole) {
    const Link link(hMod);
    const LogCapture log;
    UNUM8 bytes[20] = "a longer name";
    bytes[19] = 7;  // above the length
    const std::vector<UNUM8> before(bytes, bytes + sizeof bytes);
    PDU_PARAM_BYTEFIELD_DATA field = {sizeof bytes, 13, bytes};
    UniqueTable own;
    own.ControlUnit(1, 0x7E0, 0x7E8).With("CP_ECULayerShortName", PDU_PT_BYTEFIELD, &field);
    ASSERT_EQ(Install(link, own.Item()), PDU_STATUS_NOERROR);
    EXPECT_TRUE(
        log.Has("[DumpRespIdTable]    'CP_ECULayerShortName' = (BYTEFIELD) "
                "61 20 6C 6F 6E 67 65 72 20 6E 61 6D 65 "));
    bytes[0] = 'X';
    const auto table = TableOf(link);
    const PDU_PARAM_ITEM* param = ParamOf(*table, 0, ParamId("CP_ECULayerShortName"));
    ASSERT_NE(param, nullptr);
    const PDU_PARAM_BYTEFIELD_DATA& copy = ByteFieldOf(*param);
    EXPECT_EQ(copy.ParamMaxLen, 20u);
    EXPECT_EQ(copy.ParamActLen, 13u);
    EXPECT_EQ(std::vector<UNUM8>(copy.pDataArray, copy.pDataArray + 20), before);
}

TEST_F(UniqueTables, StructLongAndUnknownItemsAreCopiedWithoutTheirData) {
    const Link link(hMod);
    PDU_PARAM_STRUCT_ACCESS_TIMING entry{};
    PDU_PARAM_STRUCTFIELD_DATA structs = {PDU_CPST_ACCESS_TIMING, 1, 1, &entry};
    UNUM32 word = 1;
    PDU_PARAM_LONGFIELD_DATA words = {1, 1, &word};
    struct Row {
        const char* name;
        UNUM32 type;
        void* data;
    };
    const Row rows[] = {{"CP_AccessTiming_Ecu", PDU_PT_STRUCTFIELD, &structs},
                        {"CP_CanBaudrateRecord", PDU_PT_LONGFIELD, &words},
                        {"CP_CanFuncReqId", 0x10A, &word}};
    UniqueTable own;
    own.ControlUnit(1, 0x7E0, 0x7E8);
    for (const Row& row : rows)
        own.With(row.name, row.type, row.data);
    const LogCapture log;
    ASSERT_EQ(Install(link, own.Item()), PDU_STATUS_NOERROR);
    EXPECT_EQ(log.Count("[DuplicatePduUniqueResponseTable] ERROR - cannot duplicate"), 3u);
    const auto table = TableOf(link);
    for (const Row& row : rows) {
        const PDU_PARAM_ITEM* param = ParamOf(*table, 0, ParamId(row.name));
        ASSERT_NE(param, nullptr) << row.name;
        EXPECT_EQ(param->ComParamDataType, row.type) << row.name;
        EXPECT_EQ(param->pComParamData, nullptr) << row.name;
    }
}

TEST_F(UniqueTables, EmptyTableIsAccepted) {
    const Link link(hMod);
    UniqueTable empty;
    EXPECT_EQ(Install(link, empty.Item()), PDU_STATUS_NOERROR);
    EXPECT_EQ(TableOf(link)->NumEntries, 0u);
}

TEST_F(UniqueTables, WithoutOneARequestEndsWithAnError) {
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    EXPECT_EQ(Install(link, nullptr), PDU_STATUS_NOERROR);
    const LogCapture log;
    const Outcome outcome = link.Request({0x3E, 0x00});
    EXPECT_EQ(outcome.errors, std::vector<UNUM32>{257});
    EXPECT_EQ(outcome.states, (std::vector<UNUM32>{PDU_COPST_EXECUTING, PDU_COPST_FINISHED}));
    EXPECT_TRUE(log.HasLike("[CommThreadFunc:*]   Failed to duplicate UniqueRespTable"));
}

TEST_F(UniqueTables, BelongToTheirLink) {
    const Link one(hMod);
    const Link other(hMod);
    UniqueTable own;
    own.ControlUnit(5, 0x7E0, 0x7E8);
    ASSERT_EQ(Install(one, own.Item()), PDU_STATUS_NOERROR);
    EXPECT_EQ(TableOf(one)->pUniqueData[0].UniqueRespIdentifier, 5u);
    EXPECT_EQ(TableOf(other)->pUniqueData[0].UniqueRespIdentifier, 0xFFFFFFFEu);
}

TEST_F(UniqueTables, RequestUsesTheEntrysIdentifiers) {
    SetNumber("CP_P2Max", 2'000'000);
    Link link(hMod);
    ASSERT_EQ(link.Connect(), PDU_STATUS_NOERROR);
    link.Address(0x7E0, 0x7E8);
    const Outcome outcome = link.Request({0x22, 0xF1, 0x87});
    EXPECT_EQ(outcome.FinalState(), PDU_COPST_FINISHED);
    ASSERT_EQ(outcome.results.size(), 1u);
    EXPECT_EQ(Hex(outcome.results[0].data).substr(0, 8), "62 F1 87");
}
