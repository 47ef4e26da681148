#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "api/object_table.h"
#include "dpdu_types.h"

// The commands of PDUIoCtl. A new one is an id here and a row in ioctl.cpp; the compiler refuses
// the one without the other.
namespace tarvik {

enum IoCtlId : std::uint32_t {
    kIoCtlReset = 5000,
    kIoCtlClearTxQueue,
    kIoCtlSuspendTxQueue,
    kIoCtlResumeTxQueue,
    kIoCtlClearRxQueue,
    kIoCtlReadVbatt,
    kIoCtlSetProgVoltage,
    kIoCtlReadProgVoltage,
    kIoCtlGeneric,
    kIoCtlSetBufferSize,
    kIoCtlStartMsgFilter,
    kIoCtlClearMsgFilter,
    kIoCtlStopMsgFilter,
    kIoCtlSetEventQueueProperties,
    kIoCtlGetCableId,
    kIoCtlSendBreak,
    kIoCtlReadIgnitionSenseState,
    kIoCtlVehicleIdRequest,
    kIoCtlSetEthSwitchState,
    kIoCtlGetEntityStatus,
    kIoCtlGetDiagnosticPowerMode,
    kIoCtlGetEthPinOption,
    kIoCtlTlsSetCertificate,
    kIoCtlTlsGetCurrentSessionMode,
    kIoCtlIsobusGetDetectedCfs,
    kIoCtlEnd,  // one past the last
};

// `id` kIoCtlReset to kIoCtlEnd - 1.
ObjectName IoCtlName(std::uint32_t id);
std::optional<std::uint32_t> FindIoCtlId(std::string_view name);

}  // namespace tarvik
