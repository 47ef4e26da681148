// ComParams that an application sets, reads and edits in place, and response tables that it hands
// over. What the library then holds must be what the application gave.

#include "fuzz/link/fuzz_support.h"
#include "fuzz/params/made_params.h"

#include "comparam/comparams.h"
#include "objects/items.h"
#include "objects/unique_resp_tables.h"

using namespace tarvik;
using namespace tarvik::fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    SilenceOutput();
    return 0;
}

namespace {

template <typename Record>
Record RecordAt(const void* data) {
    Record record;
    std::memcpy(&record, data, sizeof record);
    return record;
}

bool SameBytes(const void* a, const void* b, std::size_t size) {
    return size == 0 || std::memcmp(a, b, size) == 0;
}

// Both point to values of this type.
bool SameValue(std::uint32_t type, const void* given, const void* held) {
    switch (type) {
        case PDU_PT_BYTEFIELD: {
            const auto a = RecordAt<PDU_PARAM_BYTEFIELD_DATA>(given);
            const auto b = RecordAt<PDU_PARAM_BYTEFIELD_DATA>(held);
            return a.ParamActLen == b.ParamActLen &&
                   SameBytes(a.pDataArray, b.pDataArray, a.ParamActLen);
        }
        case PDU_PT_LONGFIELD: {
            const auto a = RecordAt<PDU_PARAM_LONGFIELD_DATA>(given);
            const auto b = RecordAt<PDU_PARAM_LONGFIELD_DATA>(held);
            return a.ParamActLen == b.ParamActLen &&
                   SameBytes(a.pDataArray, b.pDataArray, a.ParamActLen * sizeof(UNUM32));
        }
        case PDU_PT_STRUCTFIELD: {
            const auto a = RecordAt<PDU_PARAM_STRUCTFIELD_DATA>(given);
            const auto b = RecordAt<PDU_PARAM_STRUCTFIELD_DATA>(held);
            return a.ComParamStructType == b.ComParamStructType &&
                   a.ParamActEntries == b.ParamActEntries &&
                   SameBytes(a.pStructArray, b.pStructArray, a.ParamActEntries * kStructEntrySize);
        }
        default:
            return SameBytes(given, held, ParamNumberSize(type));
    }
}

void SetAndCompare(Input& input) {
    MadeParams params(input);
    const PDU_PARAM_ITEM item = params.ForComParam();
    const bool known = IsComParamId(item.ComParamId);
    const T_PDU_ERROR status = SetComParam(&item, "Fuzz");
    if (!known) {
        Require(status == PDU_ERR_INVALID_PARAMETERS);
        return;
    }
    const std::uint32_t type = DescribeComParam(item.ComParamId).data_type;
    if (type == PDU_PT_STRUCTFIELD && status == PDU_ERR_FCT_FAILED) return;  // another struct type
    Require(status == PDU_STATUS_NOERROR);
    Require(SameValue(type, item.pComParamData, ComParamItem(item.ComParamId)->pComParamData));
    if (type == PDU_PT_UNUM32) {
        Require(ReadComParam(item.ComParamId) == RecordAt<UNUM32>(item.pComParamData));
    }
}

void ReadBytes(Input& input) {
    std::uint8_t bytes[64];
    const std::uint32_t capacity = input.Below(sizeof bytes + 1);
    Bytes exact(capacity);
    ReadComParamBytes(input.Below(kComParamCount + 2), exact.data(), capacity);
}

// The application changes lengths in the library's own record, then sets the item.
void EditInPlace(Input& input) {
    PDU_PARAM_ITEM* item = ComParamItem(1 + input.Below(kComParamCount));
    const UNUM32 length = input.Flag() ? input.U8() : input.U16();
    switch (item->ComParamDataType) {
        case PDU_PT_BYTEFIELD:
            static_cast<PDU_PARAM_BYTEFIELD_DATA*>(item->pComParamData)->ParamActLen = length;
            break;
        case PDU_PT_LONGFIELD:
            static_cast<PDU_PARAM_LONGFIELD_DATA*>(item->pComParamData)->ParamActLen = length;
            break;
        case PDU_PT_STRUCTFIELD:
            static_cast<PDU_PARAM_STRUCTFIELD_DATA*>(item->pComParamData)->ParamActEntries = length;
            break;
        default:
            break;
    }
    if (input.Flag()) Require(SetComParam(item, "Fuzz") == PDU_STATUS_NOERROR);
}

bool IsCopied(std::uint32_t type) { return ParamNumberSize(type) != 0 || type == PDU_PT_BYTEFIELD; }

void RequireCopyOf(const PDU_PARAM_ITEM& given, const PDU_PARAM_ITEM& copy) {
    Require(copy.ItemType == PDU_IT_PARAM && copy.ComParamId == given.ComParamId);
    Require(copy.ComParamDataType == given.ComParamDataType);
    Require(copy.ComParamClass == given.ComParamClass);
    const bool has_data = given.pComParamData != nullptr && IsCopied(given.ComParamDataType);
    Require((copy.pComParamData != nullptr) == has_data);
    if (!has_data) return;
    Require(copy.pComParamData != given.pComParamData);
    Require(SameValue(given.ComParamDataType, given.pComParamData, copy.pComParamData));
}

void RequireCopyOf(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& given,
                   const PDU_UNIQUE_RESP_ID_TABLE_ITEM& copy) {
    Require(copy.ItemType == PDU_IT_UNIQUE_RESP_ID_TABLE && copy.NumEntries == given.NumEntries);
    for (std::uint32_t i = 0; i < given.NumEntries; ++i) {
        const PDU_ECU_UNIQUE_RESP_DATA& from = given.pUniqueData[i];
        const PDU_ECU_UNIQUE_RESP_DATA& to = copy.pUniqueData[i];
        Require(to.UniqueRespIdentifier == from.UniqueRespIdentifier);
        Require(to.NumParamItems == from.NumParamItems);
        for (std::uint32_t k = 0; k < from.NumParamItems; ++k)
            RequireCopyOf(from.pParams[k], to.pParams[k]);
    }
}

// The first item of this id counts, whatever its type.
std::uint32_t ExpectedFrom(const PDU_ECU_UNIQUE_RESP_DATA& entry, std::uint32_t id) {
    for (std::uint32_t i = 0; i < entry.NumParamItems; ++i) {
        const PDU_PARAM_ITEM& item = entry.pParams[i];
        if (item.ComParamId != id) continue;
        switch (item.ComParamDataType) {
            case PDU_PT_UNUM8:
                return RecordAt<UNUM8>(item.pComParamData);
            case PDU_PT_UNUM16:
                return RecordAt<UNUM16>(item.pComParamData);
            case PDU_PT_UNUM32:
                return RecordAt<UNUM32>(item.pComParamData);
            default:
                return 0;
        }
    }
    return 0xAFFE;
}

void CopyTable(Input& input) {
    MadeParams params(input);
    const PDU_UNIQUE_RESP_ID_TABLE_ITEM table = params.Table();
    DumpRespIdTable(&table);
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* copy = DuplicatePduUniqueResponseTable(&table);
    RequireCopyOf(table, *copy);
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* second = DuplicatePduUniqueResponseTable(copy);
    FreePduItem(reinterpret_cast<PDU_ITEM*>(copy));
    for (std::uint32_t i = 0; i < second->NumEntries; ++i) {
        std::uint32_t id = 0xAFFE;
        OverrideFromEntry(second->pUniqueData[i], kCpCanRespUSDTId, &id);
        Require(id == ExpectedFrom(table.pUniqueData[i], kCpCanRespUSDTId));
    }
    DumpRespIdTable(second);
    FreePduItem(reinterpret_cast<PDU_ITEM*>(second));
}

void FreshTable(Input&) {
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* table = CreatePduUniqueResponseTable();
    Require(table->NumEntries == 1 && table->pUniqueData->NumParamItems == 24);
    DumpRespIdTable(table);
    FreePduItem(reinterpret_cast<PDU_ITEM*>(table));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static constexpr void (*kActions[])(Input&) = {SetAndCompare, SetAndCompare, ReadBytes,
                                                   EditInPlace,   CopyTable,     FreshTable};
    constexpr int kMostActions = 64;
    const MemoryUse before = LiveMemory();
    Require(AllocParamItems());
    Input input(data, size);
    for (int i = 0; i < kMostActions && !input.AtEnd(); ++i)
        input.OneOf(kActions)(input);
    FreeParamItems();
    Require(LiveMemory().blocks == before.blocks);
    return 0;
}
