#include "objects/unique_resp_tables.h"

#include <cstddef>
#include <memory>

#include "comparam/comparam_table.h"
#include "comparam/comparams.h"
#include "objects/items.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

struct FreeItemDeleter {
    void operator()(PDU_UNIQUE_RESP_ID_TABLE_ITEM* item) const noexcept {
        FreePduItem(reinterpret_cast<PDU_ITEM*>(item));
    }
};
using TableItem = std::unique_ptr<PDU_UNIQUE_RESP_ID_TABLE_ITEM, FreeItemDeleter>;

// The application's counts; 0 if the array is missing.
std::uint32_t EntryCount(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table) {
    return table.pUniqueData == nullptr ? 0 : table.NumEntries;
}
std::uint32_t ParamCount(const PDU_ECU_UNIQUE_RESP_DATA& entry) {
    return entry.pParams == nullptr ? 0 : entry.NumParamItems;
}

// A table with empty entries. Their parameter arrays follow each other in the block returned in
// `*params`, which the first entry owns: releasing that one releases them all.
TableItem MakeTable(std::uint32_t entries, std::size_t param_count, PDU_PARAM_ITEM** params) {
    TableItem table(AllocateRecord<PDU_UNIQUE_RESP_ID_TABLE_ITEM>().release());
    if (table == nullptr) return nullptr;
    table->ItemType = PDU_IT_UNIQUE_RESP_ID_TABLE;
    *params = nullptr;
    if (entries == 0) return table;

    table->pUniqueData = static_cast<PDU_ECU_UNIQUE_RESP_DATA*>(
        AllocateArray(entries, sizeof(PDU_ECU_UNIQUE_RESP_DATA)));
    if (table->pUniqueData == nullptr) return nullptr;
    table->NumEntries = entries;
    if (param_count == 0) return table;

    *params = static_cast<PDU_PARAM_ITEM*>(AllocateArray(param_count, sizeof(PDU_PARAM_ITEM)));
    if (*params == nullptr) return nullptr;
    table->pUniqueData->pParams = *params;
    return table;
}

// Counts the item into the entry only once it can be released with the table. False: memory is out.
bool AddCopy(ParamCopy copied, PDU_ECU_UNIQUE_RESP_DATA& entry, const char* function) {
    if (copied == ParamCopy::kNoMemory) return false;
    ++entry.NumParamItems;
    if (copied == ParamCopy::kNotCopyable)
        Log(kLogTrace, "[%s] ERROR - cannot duplicate", function);
    return true;
}

const char* ComParamName(std::uint32_t id) {
    return IsComParamId(id) ? DescribeComParam(id).name : "";
}

// Never written, and not even formatted, unless a build raises the highest level of the log.
void LogCopiedParam(const char* function, const PDU_PARAM_ITEM& param) {
    if (!LogEnabled(kLogMemory)) return;
    const Tracked<char> value(FormatParamValue(param));
    if (value == nullptr) return;
    Log(kLogMemory, "[%s]     ComParam '%s' = %s", function, ComParamName(param.ComParamId),
        value.get());
}

void DumpParam(const char* function, const PDU_PARAM_ITEM& param) {
    if (!IsComParamId(param.ComParamId)) return;
    const Tracked<char> value(FormatParamValue(param));
    if (value == nullptr) return;
    Log(kLogTrace, "[%s]    '%s' = %s", function, ComParamName(param.ComParamId), value.get());
}

// The parameter items of `source` become those of `target`, from `target.pParams` on.
bool CopyEntry(const PDU_ECU_UNIQUE_RESP_DATA& source, PDU_ECU_UNIQUE_RESP_DATA& target,
               const char* function) {
    target.UniqueRespIdentifier = source.UniqueRespIdentifier;
    for (std::uint32_t i = 0; i < ParamCount(source); ++i) {
        const PDU_PARAM_ITEM& param = source.pParams[i];
        LogCopiedParam(function, param);
        if (!AddCopy(CopyParamItem(param, &target.pParams[i]), target, function)) return false;
    }
    return true;
}

}  // namespace

Ref<UniqueRespTable> UniqueRespTable::Adopt(PDU_UNIQUE_RESP_ID_TABLE_ITEM* item) {
    TableItem owned(item);
    if (owned == nullptr) return {};
    Ref<UniqueRespTable> table = MakeCounted<UniqueRespTable>(item);
    if (table) static_cast<void>(owned.release());
    return table;
}

UniqueRespTable::~UniqueRespTable() { FreePduItem(reinterpret_cast<PDU_ITEM*>(item_)); }

PDU_UNIQUE_RESP_ID_TABLE_ITEM* CreatePduUniqueResponseTable() {
    std::size_t param_count = 0;
    for (std::uint32_t id = 1; id <= kComParamCount; ++id) {
        if (DescribeComParam(id).param_class == PDU_PC_UNIQUE_ID) ++param_count;
    }
    PDU_PARAM_ITEM* params = nullptr;
    TableItem table = MakeTable(1, param_count, &params);
    if (table == nullptr) return nullptr;

    PDU_ECU_UNIQUE_RESP_DATA& entry = *table->pUniqueData;
    entry.UniqueRespIdentifier = PDU_ID_UNDEF;
    for (std::uint32_t id = 1; id <= kComParamCount; ++id) {
        if (DescribeComParam(id).param_class != PDU_PC_UNIQUE_ID) continue;
        const ParamCopy copied = SnapshotComParam(id, &params[entry.NumParamItems]);
        if (!AddCopy(copied, entry, __func__)) return nullptr;
    }
    return table.release();
}

PDU_UNIQUE_RESP_ID_TABLE_ITEM* DuplicatePduUniqueResponseTable(
    const PDU_UNIQUE_RESP_ID_TABLE_ITEM* table) {
    if (table == nullptr) return nullptr;
    const std::uint32_t entries = EntryCount(*table);
    std::size_t param_count = 0;
    for (std::uint32_t i = 0; i < entries; ++i)
        param_count += ParamCount(table->pUniqueData[i]);

    PDU_PARAM_ITEM* params = nullptr;
    TableItem copy = MakeTable(entries, param_count, &params);
    if (copy == nullptr) return nullptr;
    for (std::uint32_t i = 0; i < entries; ++i) {
        Log(kLogMemory, "[%s]   Table #%u", __func__, i);
        PDU_ECU_UNIQUE_RESP_DATA& entry = copy->pUniqueData[i];
        entry.pParams = params;
        if (!CopyEntry(table->pUniqueData[i], entry, __func__)) return nullptr;
        if (params != nullptr) params += entry.NumParamItems;
    }
    return copy.release();
}

namespace {

// One line for each item of a type that `handles` does not accept.
void LogUnhandledParams(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table, bool (*handles)(std::uint32_t),
                        const char* function, const char* failure) {
    for (std::uint32_t i = 0; i < EntryCount(table); ++i) {
        const PDU_ECU_UNIQUE_RESP_DATA& entry = table.pUniqueData[i];
        for (std::uint32_t k = 0; k < ParamCount(entry); ++k) {
            if (handles(entry.pParams[k].ComParamDataType)) continue;
            Log(kLogTrace, "[%s] ERROR - %s", function, failure);
        }
    }
}

}  // namespace

LoggedTableCopy::LoggedTableCopy(const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table) : table_(table) {
    LogUnhandledParams(table, IsCopyableParam, "DuplicatePduUniqueResponseTable",
                       "cannot duplicate");
}

LoggedTableCopy::~LoggedTableCopy() {
    Log(kLogTrace, "[%s] PDU_IT_UNIQUE_RESP_ID_TABLE", "FreePduItem");
    LogUnhandledParams(table_, IsReleasedParam, "FreePduItem", "cannot free");
}

void DumpRespIdTable(const PDU_UNIQUE_RESP_ID_TABLE_ITEM* table) {
    if (!LogEnabled(kLogTrace)) return;
    Log(kLogTrace, "[%s]", __func__);
    if (table == nullptr) return;
    for (std::uint32_t i = 0; i < EntryCount(*table); ++i) {
        Log(kLogTrace, "[%s]  Table %u", __func__, i);
        const PDU_ECU_UNIQUE_RESP_DATA& entry = table->pUniqueData[i];
        for (std::uint32_t k = 0; k < ParamCount(entry); ++k) {
            DumpParam(__func__, entry.pParams[k]);
        }
    }
}

void OverrideFromEntry(const PDU_ECU_UNIQUE_RESP_DATA& entry, std::uint32_t comparam_id,
                       std::uint32_t* value) {
    for (std::uint32_t i = 0; i < ParamCount(entry); ++i) {
        if (entry.pParams[i].ComParamId != comparam_id) continue;
        *value = ReadParamItem(entry.pParams[i]);
        return;
    }
}

}  // namespace tarvik
