#include "comparam/comparams.h"

#include <array>

#include "comparam/comparam_row.h"
#include "comparam/comparam_table.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "support/log.h"

namespace tarvik {
namespace {

constinit std::array<ParamValue, kComParamCount> values{};

// The items point to their values from the start: PDUGetComParam answers before PDUConstruct too.
constexpr std::array<ComParamRow, kComParamCount> MakeRows() {
    std::array<ComParamRow, kComParamCount> made{};
    for (std::size_t i = 0; i < kComParamCount; ++i) {
        made[i] = MakeRow(&kComParamTable[i], &values[i]);
    }
    return made;
}
constinit std::array<ComParamRow, kComParamCount> rows = MakeRows();

// Guards the rows, except that numbers are read without it. Taken after every other lock except
// the allocator's and the log's.
Immortal<OsLock> rows_lock;

ComParamRow* FindRow(std::uint32_t id) { return IsComParamId(id) ? &rows[id - 1] : nullptr; }

}  // namespace

bool AllocParamItems() {
    for (ComParamRow& row : rows) {
        Log(kLogTrace, "[%s] Item: %s", __func__, row.description->name);
        const LockGuard hold(*rows_lock);
        if (row.allocated) continue;
        if (!PrepareRow(row)) return false;
        row.allocated = true;
    }
    return true;
}

void FreeParamItems() {
    const LockGuard hold(*rows_lock);
    for (ComParamRow& row : rows)
        ReleaseRow(row);
}

std::uint32_t ReadComParam(std::uint32_t id) {
    const ComParamRow* row = FindRow(id);
    return row == nullptr ? 0 : ReadRowNumber(*row);
}

std::uint32_t ReadComParamBytes(std::uint32_t id, std::uint8_t* bytes, std::uint32_t capacity) {
    const ComParamRow* row = FindRow(id);
    if (row == nullptr) return 0;
    const LockGuard hold(*rows_lock);
    return ReadRowBytes(*row, bytes, capacity);
}

PDU_PARAM_ITEM* ComParamItem(std::uint32_t id) {
    ComParamRow* row = FindRow(id);
    return row == nullptr ? nullptr : &row->item;
}

ParamCopy SnapshotComParam(std::uint32_t id, PDU_PARAM_ITEM* copy) {
    const LockGuard hold(*rows_lock);
    return CopyRow(rows[id - 1], copy);
}

T_PDU_ERROR SetComParam(const PDU_PARAM_ITEM* item, const char* function) {
    ComParamRow* row = item == nullptr ? nullptr : FindRow(item->ComParamId);
    if (row == nullptr || item->pComParamData == nullptr) {
        Log(kLogTrace, "[%s] Invalid ComParam, Returning PDU_ERR_INVALID_PARAMETERS", function);
        return PDU_ERR_INVALID_PARAMETERS;
    }
    const bool logging = LogEnabled(kLogTrace);
    RowSnapshot snapshot;
    {
        const LockGuard hold(*rows_lock);
        const void* data = item->pComParamData;
        // An application that set its own buffer into the row's item takes it back here.
        if (row->item.pComParamData != row->value) row->item.pComParamData = row->value;
        const T_PDU_ERROR status = SetRow(*row, data, function, logging ? &snapshot : nullptr);
        if (status != PDU_STATUS_NOERROR) return status;
    }
    if (logging) LogRowValue(*row, snapshot, function);
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", function);
    return PDU_STATUS_NOERROR;
}

}  // namespace tarvik
