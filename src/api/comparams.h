#pragma once

#include <cstdint>
#include <string_view>

#include "api/dpdu_types.h"
#include "api/param_values.h"

// The one process-wide table of ComParam values: every link and every ComPrimitive reads it.
namespace tarvik {

inline constexpr std::uint32_t kComParamCount = 228;

// One row of the constant description table.
struct ComParamDescription {
    const char* name;
    std::uint32_t id;  // position + 1
    std::uint32_t data_type;
    std::uint32_t param_class;
};
// `id` 1 to 228.
const ComParamDescription& DescribeComParam(std::uint32_t id);
// 0: no ComParam has this name.
std::uint32_t FindComParamId(std::string_view name);

inline constexpr bool IsComParamId(std::uint32_t id) { return id >= 1 && id <= kComParamCount; }

// The ComParams that the library itself reads, by their ids: a look-up by name on every request
// would cost more than the rest of the request's preparation.
inline constexpr std::uint32_t kCpP2Max = 12;
inline constexpr std::uint32_t kCpRC78Handling = 25;
inline constexpr std::uint32_t kCpTesterPresentMessage = 36;
inline constexpr std::uint32_t kCpTesterPresentTime = 39;
inline constexpr std::uint32_t kCpCanFuncReqFormat = 56;
inline constexpr std::uint32_t kCpCanFuncReqId = 57;
inline constexpr std::uint32_t kCpCanPhysReqFormat = 60;
inline constexpr std::uint32_t kCpCanPhysReqId = 61;
inline constexpr std::uint32_t kCpCanRespUSDTFormat = 63;
inline constexpr std::uint32_t kCpCanRespUSDTId = 64;
inline constexpr std::uint32_t kCpRequestAddrMode = 105;

// Prepares every row: values zero, field buffers made. False: memory is out.
bool AllocParamItems();
// Releases the field buffers; the next AllocParamItems starts at zero again.
void FreeParamItems();

// Numbers as 8, 16 or 32 bits unsigned; any other row, and an unknown id, reads as 0.
std::uint32_t ReadComParam(std::uint32_t id);
// Copies at most `capacity` bytes of a byte field; the field's ParamActLen, which may be more than
// was copied. 0 for any other row, and for a field that lost its buffer when memory ran out.
std::uint32_t ReadComParamBytes(std::uint32_t id, std::uint8_t* bytes, std::uint32_t capacity);
// The row's own item, for PDUGetComParam; null: unknown id.
PDU_PARAM_ITEM* ComParamItem(std::uint32_t id);
// The row's item and value as they are now, in blocks of their own, as CopyParamItem makes them.
ParamCopy SnapshotComParam(std::uint32_t id, PDU_PARAM_ITEM* copy);
// Copies the item's value into its row, for PDUSetComParam. `function` is the tag of the log
// lines; the item may be the row's own.
T_PDU_ERROR SetComParam(const PDU_PARAM_ITEM* item, const char* function);

}  // namespace tarvik
