#pragma once

#include <cstddef>
#include <cstdint>

#include "dpdu_types.h"

// Values of single parameter items, wherever they are: in the ComParam table, in a unique response
// table or in the application's memory.
namespace tarvik {

// Bytes of a number of this data type; 0: not one of the six number types.
std::size_t ParamNumberSize(std::uint32_t data_type);

// An unsigned number of 8, 16 or 32 bits, by the item's own data type; 0 for any other type.
std::uint32_t ReadParamItem(const PDU_PARAM_ITEM& item);
// The item's value as text in a tracked block that the caller frees; null: memory is out.
char* FormatParamValue(const PDU_PARAM_ITEM& item);

inline constexpr std::size_t kStructEntrySize = 6;  // of both struct types
inline constexpr std::size_t kStructEntryTextSize = 32;
// The numbers of one entry, separated by blanks, as the log and FormatParamValue show them.
// False: not a known struct type.
bool FormatStructEntry(std::uint32_t struct_type, const void* entry,
                       char (&text)[kStructEntryTextSize]);

// Whether CopyParamItem copies, and FreeParamValue releases, values of this data type.
bool IsCopyableParam(std::uint32_t data_type);
bool IsReleasedParam(std::uint32_t data_type);

enum class ParamCopy : std::uint8_t {
    kCopied,
    kNotCopyable,  // struct field, long field or unknown type: the copy's data pointer is null
    kNoMemory,     // nothing is left to release
};
// Deep copy: numbers and byte fields get their own tracked blocks.
ParamCopy CopyParamItem(const PDU_PARAM_ITEM& source, PDU_PARAM_ITEM* copy);
// Releases the blocks of an item's value. False: this data type is never released.
bool FreeParamValue(const PDU_PARAM_ITEM& item);

}  // namespace tarvik
