#pragma once

#include <cstdint>

#include "comparam/comparam_ids.h"
#include "comparam/param_values.h"
#include "dpdu_types.h"

// The process-wide ComParam values, shared by all links and ComPrimitives. Safe on any thread.
namespace tarvik {

// Prepares every row: value zero, field buffer allocated. False: memory is out.
bool AllocParamItems();
// Releases the field buffers; the next AllocParamItems starts at zero again.
void FreeParamItems();

// An unsigned number of 8, 16 or 32 bits; 0 for any other row and for an unknown id.
std::uint32_t ReadComParam(std::uint32_t id);
// Copies at most `capacity` bytes of a byte field. Returns the field's ParamActLen, which may be
// more than was copied; 0 for any other row and for a field whose buffer could not be allocated.
std::uint32_t ReadComParamBytes(std::uint32_t id, std::uint8_t* bytes, std::uint32_t capacity);
// The row's own item, for PDUGetComParam; null: unknown id.
PDU_PARAM_ITEM* ComParamItem(std::uint32_t id);
// Copies the row's item and its current value, as CopyParamItem does.
ParamCopy SnapshotComParam(std::uint32_t id, PDU_PARAM_ITEM* copy);
// Copies the item's value into its row, for PDUSetComParam. The item may be the row's own.
// `function` is the tag of the log lines.
T_PDU_ERROR SetComParam(const PDU_PARAM_ITEM* item, const char* function);

}  // namespace tarvik
