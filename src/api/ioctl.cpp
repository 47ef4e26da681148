#include <algorithm>
#include <iterator>

#include "api/ioctl_doip_request.h"
#include "api/ioctl_table.h"
#include "dpdu_api.h"
#include "platform/console.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

constexpr char kTag[] = "PDUIoCtl";

// Reported whatever the dongle measures.
constexpr UNUM32 kBatteryMillivolts = 13800;
constexpr UNUM32 kIgnitionOn = 1;
constexpr UNUM32 kPowerModeReady = 1;
constexpr PDU_IO_ENTITY_STATUS_DATA kEntityStatus = {0, 1, 0, 0};

// An output item and its data in one block. FreePduItem does not release these items, so the block
// stays allocated.
template <typename Data>
PDU_DATA_ITEM* MakeOutput(T_PDU_IT type, const Data& data) {
    struct Block {
        PDU_DATA_ITEM item;
        Data data;
    };
    auto block = AllocateRecord<Block>();
    if (block == nullptr) return nullptr;
    block->data = data;
    block->item = {type, &block->data};
    return &block.release()->item;
}

// Deliberate: a command that cannot allocate its item opens a console, prints a message there and
// never returns.
[[noreturn]] void StopForLackOfMemory() {
    constexpr unsigned kReportedSize = 4096;
    OsCreateConsole();
    ConsolePrint("Allocation (%u) failed - BUG!\n", kReportedSize);
    for (;;)
        SleepMs(1000);
}

void GiveMeasuredValue(UNUM32 value, PDU_DATA_ITEM** output) {
    if (output == nullptr) return;
    *output = MakeOutput(PDU_IT_IO_UNUM32, value);
    if (*output == nullptr) StopForLackOfMemory();
}

template <typename Data>
void GiveOutput(T_PDU_IT type, const Data& data, PDU_DATA_ITEM** output) {
    if (output != nullptr) *output = MakeOutput(type, data);
}

void GiveNothing(PDU_DATA_ITEM** output) {
    if (output != nullptr) *output = nullptr;
}

// The data of an input of this type; null for any other input.
template <typename Data>
const Data* InputOf(const PDU_DATA_ITEM* input, T_PDU_IT type) {
    if (input == nullptr || input->ItemType != type) return nullptr;
    return static_cast<const Data*>(input->pData);
}

// ---- The commands: each writes `*output` only if it succeeds -----------------------------------

// Changes nothing, `*output` included.
T_PDU_ERROR AcceptOnly(const PDU_DATA_ITEM*, PDU_DATA_ITEM**) { return PDU_STATUS_NOERROR; }

T_PDU_ERROR ReadBatteryVoltage(const PDU_DATA_ITEM*, PDU_DATA_ITEM** output) {
    GiveMeasuredValue(kBatteryMillivolts, output);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR ReadIgnitionState(const PDU_DATA_ITEM*, PDU_DATA_ITEM** output) {
    GiveMeasuredValue(kIgnitionOn, output);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR RequestVehicleIds(const PDU_DATA_ITEM* input, PDU_DATA_ITEM** output) {
    Log(kLogTrace, "[%s] PDU_IOCTL_VEHICLE_ID_REQUEST", kTag);
    const auto* data = InputOf<PDU_IO_VEHICLE_ID_REQUEST>(input, PDU_IT_IO_VEHICLE_ID_REQUEST);
    if (data == nullptr) return PDU_ERR_INVALID_PARAMETERS;
    BuildVehicleIdRequest(*data);
    GiveNothing(output);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR SetEthSwitchState(const PDU_DATA_ITEM* input, PDU_DATA_ITEM** output) {
    Log(kLogTrace, "[%s] PDU_IOCTL_SET_ETH_SWITCH_STATE", kTag);
    const auto* data = InputOf<PDU_IO_ETH_SWITCH_STATE>(input, PDU_IT_IO_ETH_SWITCH_STATE);
    if (data == nullptr) return PDU_ERR_INVALID_PARAMETERS;
    BuildValueRequest(DoipRequestKind::kEthSwitchState, data->EthernetSenseState,
                      data->EthernetActPinNumber);
    GiveNothing(output);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR GetEntityStatus(const PDU_DATA_ITEM* input, PDU_DATA_ITEM** output) {
    Log(kLogTrace, "[%s] PDU_IOCTL_GET_ENTITY_STATUS", kTag);
    const auto* data = InputOf<PDU_IO_ENTITY_ADDRESS_DATA>(input, PDU_IT_IO_ENTITY_ADDRESS);
    if (data == nullptr) return PDU_ERR_INVALID_PARAMETERS;
    BuildValueRequest(DoipRequestKind::kEntityStatus, data->LogicalAddress, data->DoIPCtrlTimeout);
    GiveOutput(PDU_IT_IO_ENTITY_STATUS, kEntityStatus, output);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR GetDiagnosticPowerMode(const PDU_DATA_ITEM* input, PDU_DATA_ITEM** output) {
    Log(kLogTrace, "[%s] PDU_IOCTL_GET_DIAGNOSTIC_POWER_MODE", kTag);
    // Deliberate: the same input as for the entity status.
    const auto* data = InputOf<PDU_IO_ENTITY_ADDRESS_DATA>(input, PDU_IT_IO_ENTITY_ADDRESS);
    if (data == nullptr) return PDU_ERR_INVALID_PARAMETERS;
    BuildValueRequest(DoipRequestKind::kDiagnosticPowerMode, data->LogicalAddress,
                      data->DoIPCtrlTimeout);
    GiveOutput(PDU_IT_IO_UNUM32, kPowerModeReady, output);
    return PDU_STATUS_NOERROR;
}

// Null: the command is known by name only.
using IoCtlHandler = T_PDU_ERROR (*)(const PDU_DATA_ITEM* input, PDU_DATA_ITEM** output);
constexpr IoCtlHandler kNotSupported = nullptr;

struct IoCtlRow {
    std::uint32_t id;
    std::string_view name;
    IoCtlHandler handler;
    std::string_view description;
};

constexpr IoCtlRow kIoCtlTable[] = {
    {kIoCtlReset, "PDU_IOCTL_RESET", AcceptOnly, "Resets the module; accepted, without effect"},
    {kIoCtlClearTxQueue, "PDU_IOCTL_CLEAR_TX_QUEUE", kNotSupported,
     "Empties the transmit queue; not supported"},
    {kIoCtlSuspendTxQueue, "PDU_IOCTL_SUSPEND_TX_QUEUE", kNotSupported,
     "Suspends sending; not supported"},
    {kIoCtlResumeTxQueue, "PDU_IOCTL_RESUME_TX_QUEUE", kNotSupported,
     "Resumes sending; not supported"},
    {kIoCtlClearRxQueue, "PDU_IOCTL_CLEAR_RX_QUEUE", kNotSupported,
     "Empties the receive queue; not supported"},
    {kIoCtlReadVbatt, "PDU_IOCTL_READ_VBATT", ReadBatteryVoltage,
     "Battery voltage in millivolts; always 13800"},
    {kIoCtlSetProgVoltage, "PDU_IOCTL_SET_PROG_VOLTAGE", kNotSupported,
     "Sets the programming voltage; not supported"},
    {kIoCtlReadProgVoltage, "PDU_IOCTL_READ_PROG_VOLTAGE", kNotSupported,
     "Reads the programming voltage; not supported"},
    {kIoCtlGeneric, "PDU_IOCTL_GENERIC", kNotSupported, "A command of the vendor; not supported"},
    {kIoCtlSetBufferSize, "PDU_IOCTL_SET_BUFFER_SIZE", AcceptOnly,
     "Sets the size of a buffer; accepted, without effect"},
    {kIoCtlStartMsgFilter, "PDU_IOCTL_START_MSG_FILTER", AcceptOnly,
     "Starts message filters; accepted, without effect"},
    {kIoCtlClearMsgFilter, "PDU_IOCTL_CLEAR_MSG_FILTER", AcceptOnly,
     "Ends all message filters; accepted, without effect"},
    {kIoCtlStopMsgFilter, "PDU_IOCTL_STOP_MSG_FILTER", kNotSupported,
     "Ends one message filter; not supported"},
    {kIoCtlSetEventQueueProperties, "PDU_IOCTL_SET_EVENT_QUEUE_PROPERTIES", kNotSupported,
     "Sets length and mode of the event queue; not supported"},
    {kIoCtlGetCableId, "PDU_IOCTL_GET_CABLE_ID", kNotSupported,
     "Number of the cable; not supported"},
    {kIoCtlSendBreak, "PDU_IOCTL_SEND_BREAK", kNotSupported, "Sends a break; not supported"},
    {kIoCtlReadIgnitionSenseState, "PDU_IOCTL_READ_IGNITION_SENSE_STATE", ReadIgnitionState,
     "State of the ignition; always on"},
    {kIoCtlVehicleIdRequest, "PDU_IOCTL_VEHICLE_ID_REQUEST", RequestVehicleIds,
     "Asks vehicles for their identification (DoIP); nothing is sent"},
    {kIoCtlSetEthSwitchState, "PDU_IOCTL_SET_ETH_SWITCH_STATE", SetEthSwitchState,
     "Switches the Ethernet activation line; nothing is switched"},
    {kIoCtlGetEntityStatus, "PDU_IOCTL_GET_ENTITY_STATUS", GetEntityStatus,
     "Status of a DoIP entity; a fixed one"},
    {kIoCtlGetDiagnosticPowerMode, "PDU_IOCTL_GET_DIAGNOSTIC_POWER_MODE", GetDiagnosticPowerMode,
     "Diagnostic power mode of a DoIP entity; always ready"},
    {kIoCtlGetEthPinOption, "PDU_IOCTL_GET_ETH_PIN_OPTION", kNotSupported,
     "Pins of the Ethernet connection; not supported"},
    {kIoCtlTlsSetCertificate, "PDU_IOCTL_TLS_SET_CERTIFICATE", kNotSupported,
     "Sets a certificate for TLS; not supported"},
    {kIoCtlTlsGetCurrentSessionMode, "PDU_IOCTL_TLS_GET_CURRENT_SESSION_MODE", kNotSupported,
     "Mode of the TLS session; not supported"},
    {kIoCtlIsobusGetDetectedCfs, "PDU_IOCTL_ISOBUS_GET_DETECTED_CFS", kNotSupported,
     "Control functions detected on an ISOBUS; not supported"},
};

// By position: the look-up relies on it.
constexpr bool RowsFollowTheIds() {
    std::uint32_t id = kIoCtlReset;
    for (const IoCtlRow& row : kIoCtlTable) {
        if (row.id != id++) return false;
    }
    return id == kIoCtlEnd;
}
static_assert(RowsFollowTheIds(), "every IoCtlId needs a row, in the order of the ids");
static_assert(std::ranges::none_of(kIoCtlTable,
                                   [](const IoCtlRow& row) { return row.description.empty(); }));

IoCtlHandler HandlerOf(std::uint32_t command) {
    if (command < kIoCtlReset || command >= kIoCtlEnd) return kNotSupported;
    return kIoCtlTable[command - kIoCtlReset].handler;
}

T_PDU_ERROR Execute(std::uint32_t command, const PDU_DATA_ITEM* input, PDU_DATA_ITEM** output) {
    if (const IoCtlHandler handler = HandlerOf(command)) return handler(input, output);
    Log(kLogTrace, "[%s] PDU_ERR_ID_NOT_SUPPORTED %d", kTag, static_cast<int>(command));
    return PDU_ERR_ID_NOT_SUPPORTED;
}

}  // namespace

ObjectName IoCtlName(std::uint32_t id) {
    const IoCtlRow& row = kIoCtlTable[id - kIoCtlReset];
    return {row.name, row.id, row.description};
}

std::optional<std::uint32_t> FindIoCtlId(std::string_view name) {
    for (const IoCtlRow& row : kIoCtlTable) {
        if (row.name == name) return row.id;
    }
    return std::nullopt;
}

}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUIoCtl(UNUM32, UNUM32, UNUM32 IoCtlCommandId,
                                         PDU_DATA_ITEM* pInputData, PDU_DATA_ITEM** pOutputData) {
    Log(kLogTrace, "[%s] Called", __func__);
    const T_PDU_ERROR status = Execute(IoCtlCommandId, pInputData, pOutputData);
    if (status == PDU_STATUS_NOERROR) {
        Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    }
    return status;
}
