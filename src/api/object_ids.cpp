#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>

#include "api/ioctl_table.h"
#include "api/object_table.h"
#include "comparam/comparam_table.h"
#include "dpdu_api.h"
#include "support/log.h"

namespace tarvik {
namespace {

template <std::size_t N>
constexpr bool AreDescribed(const ObjectName (&rows)[N]) {
    return std::ranges::none_of(rows,
                                [](const ObjectName& row) { return row.description.empty(); });
}
static_assert(AreDescribed(kProtocols) && AreDescribed(kBusTypes) && AreDescribed(kPinTypes) &&
              AreDescribed(kResources));

template <std::size_t N>
std::optional<std::uint32_t> FindIn(const ObjectName (&rows)[N], std::string_view name) {
    for (const ObjectName& row : rows) {
        if (row.name == name) return row.id;
    }
    return std::nullopt;
}

std::optional<std::uint32_t> FindComParam(std::string_view name) {
    const std::uint32_t id = FindComParamId(name);
    return id == 0 ? std::nullopt : std::optional(id);
}

std::optional<std::uint32_t> FindObjectId(T_PDU_OBJT type, std::string_view name) {
    switch (type) {
        case PDU_OBJT_PROTOCOL:
            return FindIn(kProtocols, name);
        case PDU_OBJT_BUSTYPE:
            return FindIn(kBusTypes, name);
        case PDU_OBJT_IO_CTRL:
            return FindIoCtlId(name);
        case PDU_OBJT_COMPARAM:
            return FindComParam(name);
        case PDU_OBJT_PINTYPE:
            return FindIn(kPinTypes, name);
        case PDU_OBJT_RESOURCE:
            return FindIn(kResources, name);
        default:
            return std::nullopt;
    }
}

}  // namespace
}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUGetObjectId(T_PDU_OBJT pduObjectType, CHAR8* pShortname,
                                               UNUM32* pPduObjectId) {
    const char* shown = pShortname == nullptr ? "(null)" : pShortname;
    Log(kLogTrace, "[%s] (%u, '%s', ...)", __func__, pduObjectType, shown);
    if (pPduObjectId != nullptr) *pPduObjectId = 0;

    const auto id = pShortname == nullptr ? std::nullopt : FindObjectId(pduObjectType, pShortname);
    if (!id) {
        Log(kLogTrace, "[%s] Not found: %s", __func__, shown);
        return PDU_ERR_INVALID_PARAMETERS;
    }
    if (pPduObjectId != nullptr) *pPduObjectId = *id;
    // Deliberate: every other success is silent.
    if (pduObjectType == PDU_OBJT_IO_CTRL && *id == kIoCtlReset) {
        Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR, *pPduObjectId=%u", __func__, *id);
    }
    return PDU_STATUS_NOERROR;
}
