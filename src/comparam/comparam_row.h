#pragma once

#include <cstdint>

#include "comparam/comparam_table.h"
#include "comparam/param_values.h"
#include "dpdu_types.h"
#include "support/memory.h"

namespace tarvik {

// What a ComParam's pComParamData points to: the application reads and writes it directly.
union ParamValue {
    UNUM32 number;  // in its first 8, 16 or 32 bits; the library goes through std::atomic_ref
    PDU_PARAM_BYTEFIELD_DATA bytes;
    PDU_PARAM_LONGFIELD_DATA words;
    PDU_PARAM_STRUCTFIELD_DATA structs;  // its array pointer follows the first 16 bytes
};
static_assert(sizeof(ParamValue) == 24);

// One row of the ComParam table. The application holds pointers to `item`, `*value` and `buffer`
// and may edit them in place. The library relies on the field's own buffer, its maximum and its
// struct type, so it keeps a second copy of them here. Every SetRow restores them in `*value`. All
// of it is guarded by the caller's lock, except that numbers may be read without it.
struct ComParamRow {
    const ComParamDescription* description;
    PDU_PARAM_ITEM item;
    ParamValue* value;
    void* buffer;                // tracked; null: not prepared, or memory ran out
    std::uint32_t max_elements;  // ParamMaxLen or ParamMaxEntries
    std::uint32_t struct_type;
    bool allocated;  // prepared by AllocParamItems
};

// A row before its preparation: a number of 0, or an empty field without a buffer.
constexpr ComParamRow MakeRow(const ComParamDescription* description, ParamValue* value) {
    return {
        description,
        {PDU_IT_PARAM, description->id, description->data_type, description->param_class, value},
        value,
        nullptr,
        0,
        0,
        false};
}

// Sets the value to zero and makes the field buffer. False: memory is out.
bool PrepareRow(ComParamRow& row);
// Resets value, buffer and flags to the state of MakeRow.
void ReleaseRow(ComParamRow& row);

// A value kept for log lines that are written after the lock is released.
struct RowSnapshot {
    std::uint32_t number = 0;
    std::uint32_t count = 0;         // elements
    Tracked<std::uint8_t> elements;  // null: memory was out, or not a field
};

// Copies the value at `data`, which may be the row's own, by the row's data type. On success
// `*snapshot`, if given, holds the new value. `function` is the tag of the refusals' log lines.
T_PDU_ERROR SetRow(ComParamRow& row, const void* data, const char* function, RowSnapshot* snapshot);
// Logs a value that was set successfully.
void LogRowValue(const ComParamRow& row, const RowSnapshot& snapshot, const char* function);

// An unsigned number of 8, 16 or 32 bits; 0 for other types. Needs no lock.
std::uint32_t ReadRowNumber(const ComParamRow& row);
// As ReadComParamBytes.
std::uint32_t ReadRowBytes(const ComParamRow& row, std::uint8_t* bytes, std::uint32_t capacity);
// As SnapshotComParam.
ParamCopy CopyRow(const ComParamRow& row, PDU_PARAM_ITEM* copy);

}  // namespace tarvik
