#include <iterator>
#include <optional>
#include <string_view>

#include "api/ioctl_ids.h"
#include "comparam/comparam_table.h"
#include "dpdu_api.h"
#include "support/log.h"

namespace tarvik {
namespace {

struct ObjectName {
    std::string_view name;
    std::uint32_t id;
};

// Deliberate: both protocols have the same id.
constexpr ObjectName kProtocols[] = {{"ISO_15765_3_on_ISO_15765_2", 3000}, {"ISO_11898_RAW", 3000}};
constexpr ObjectName kBusTypes[] = {{"ISO_11898_2_DWCAN", 4000}};
constexpr ObjectName kPinTypes[] = {{"HI", 0}, {"LOW", 1}};
constexpr ObjectName kResources[] = {{"ISO_UDS_on_OBD", 2001}};

// All of the standard's commands have an id here; PDUIoCtl supports a few of them.
constexpr ObjectName kIoCtls[] = {
    {"PDU_IOCTL_RESET", kIoCtlReset},
    {"PDU_IOCTL_CLEAR_TX_QUEUE", 5001},
    {"PDU_IOCTL_SUSPEND_TX_QUEUE", 5002},
    {"PDU_IOCTL_RESUME_TX_QUEUE", 5003},
    {"PDU_IOCTL_CLEAR_RX_QUEUE", 5004},
    {"PDU_IOCTL_READ_VBATT", kIoCtlReadVbatt},
    {"PDU_IOCTL_SET_PROG_VOLTAGE", 5006},
    {"PDU_IOCTL_READ_PROG_VOLTAGE", 5007},
    {"PDU_IOCTL_GENERIC", 5008},
    {"PDU_IOCTL_SET_BUFFER_SIZE", kIoCtlSetBufferSize},
    {"PDU_IOCTL_START_MSG_FILTER", kIoCtlStartMsgFilter},
    {"PDU_IOCTL_CLEAR_MSG_FILTER", kIoCtlClearMsgFilter},
    {"PDU_IOCTL_STOP_MSG_FILTER", 5012},
    {"PDU_IOCTL_SET_EVENT_QUEUE_PROPERTIES", 5013},
    {"PDU_IOCTL_GET_CABLE_ID", 5014},
    {"PDU_IOCTL_SEND_BREAK", 5015},
    {"PDU_IOCTL_READ_IGNITION_SENSE_STATE", kIoCtlReadIgnitionSenseState},
    {"PDU_IOCTL_VEHICLE_ID_REQUEST", kIoCtlVehicleIdRequest},
    {"PDU_IOCTL_SET_ETH_SWITCH_STATE", kIoCtlSetEthSwitchState},
    {"PDU_IOCTL_GET_ENTITY_STATUS", kIoCtlGetEntityStatus},
    {"PDU_IOCTL_GET_DIAGNOSTIC_POWER_MODE", kIoCtlGetDiagnosticPowerMode},
    {"PDU_IOCTL_GET_ETH_PIN_OPTION", 5021},
    {"PDU_IOCTL_TLS_SET_CERTIFICATE", 5022},
    {"PDU_IOCTL_TLS_GET_CURRENT_SESSION_MODE", 5023},
    {"PDU_IOCTL_ISOBUS_GET_DETECTED_CFS", 5024},
};

constexpr bool IoCtlIdsFollowEachOther() {
    std::uint32_t id = kIoCtlReset;
    for (const ObjectName& row : kIoCtls) {
        if (row.id != id++) return false;
    }
    return true;
}
static_assert(IoCtlIdsFollowEachOther() && std::size(kIoCtls) == 25);

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
            return FindIn(kIoCtls, name);
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
