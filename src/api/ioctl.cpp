#include "api/ioctl_doip_request.h"
#include "api/ioctl_ids.h"
#include "dpdu_api.h"
#include "platform/console.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

constexpr char kTag[] = "PDUIoCtl";

// What the dongle is always said to report.
constexpr UNUM32 kBatteryMillivolts = 13800;
constexpr UNUM32 kIgnitionOn = 1;
constexpr UNUM32 kPowerModeReady = 1;
constexpr PDU_IO_ENTITY_STATUS_DATA kEntityStatus = {0, 1, 0, 0};

// An output item and its data in one block. The release table does not name these items, so the
// block stays allocated: see FreePduItem.
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

// Deliberate: an application that cannot even have this item is held here, with a message on a
// console of its own, and never gets an answer.
[[noreturn]] void StopForLackOfMemory() {
    constexpr unsigned kReportedSize = 4096;
    OsAttachConsole();
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

// The record behind an input of the right type; null for any other.
template <typename Data>
const Data* InputOf(const PDU_DATA_ITEM* input, T_PDU_IT type) {
    if (input == nullptr || input->ItemType != type) return nullptr;
    return static_cast<const Data*>(input->pData);
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
    // Deliberate: the same input as of the entity status.
    const auto* data = InputOf<PDU_IO_ENTITY_ADDRESS_DATA>(input, PDU_IT_IO_ENTITY_ADDRESS);
    if (data == nullptr) return PDU_ERR_INVALID_PARAMETERS;
    BuildValueRequest(DoipRequestKind::kDiagnosticPowerMode, data->LogicalAddress,
                      data->DoIPCtrlTimeout);
    GiveOutput(PDU_IT_IO_UNUM32, kPowerModeReady, output);
    return PDU_STATUS_NOERROR;
}

T_PDU_ERROR Execute(std::uint32_t command, const PDU_DATA_ITEM* input, PDU_DATA_ITEM** output) {
    switch (command) {
        case kIoCtlReset:
        case kIoCtlSetBufferSize:
        case kIoCtlStartMsgFilter:
        case kIoCtlClearMsgFilter:
            return PDU_STATUS_NOERROR;
        case kIoCtlReadVbatt:
            GiveMeasuredValue(kBatteryMillivolts, output);
            return PDU_STATUS_NOERROR;
        case kIoCtlReadIgnitionSenseState:
            GiveMeasuredValue(kIgnitionOn, output);
            return PDU_STATUS_NOERROR;
        case kIoCtlVehicleIdRequest:
            return RequestVehicleIds(input, output);
        case kIoCtlSetEthSwitchState:
            return SetEthSwitchState(input, output);
        case kIoCtlGetEntityStatus:
            return GetEntityStatus(input, output);
        case kIoCtlGetDiagnosticPowerMode:
            return GetDiagnosticPowerMode(input, output);
        default:
            Log(kLogTrace, "[%s] PDU_ERR_ID_NOT_SUPPORTED %d", kTag, static_cast<int>(command));
            return PDU_ERR_ID_NOT_SUPPORTED;
    }
}

}  // namespace
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
