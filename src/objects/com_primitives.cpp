#include "objects/com_primitives.h"

#include <atomic>
#include <cstring>

#include "objects/com_primitive.h"
#include "support/cop_trace.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

std::atomic<std::uint32_t> last_cop_handle{0};  // process-wide; the first ComPrimitive gets 1

void LogType(const char* function, std::uint32_t type) {
    switch (type) {
        case PDU_COPT_STARTCOMM:
            Log(kLogTrace, "[%s]   PDU_COPT_STARTCOMM", function);
            break;
        case PDU_COPT_STOPCOMM:
            Log(kLogTrace, "[%s]   PDU_COPT_STOPCOMM", function);
            break;
        case PDU_COPT_UPDATEPARAM:
            Log(kLogTrace, "[%s]   PDU_COPT_UPDATEPARAM", function);
            break;
        case PDU_COPT_SENDRECV:
            break;
        default:
            Log(kLogTrace, "[%s] Unhandled: %04X", function, type);
            break;
    }
}

TraceExpectedResponse TracedExpectedResponse(const void* context, std::uint32_t index) {
    const PDU_EXP_RESP_DATA& expected =
        static_cast<const PDU_COP_CTRL_DATA*>(context)->pExpectedResponseArray[index];
    return {expected.AcceptanceId,    expected.ResponseType,        expected.pPatternData,
            expected.pMaskData,       expected.NumMaskPatternBytes, expected.pUniqueRespIds,
            expected.NumUniqueRespIds};
}

void TraceStart(const TraceCop& ids, const StartRequest& request) {
    if (!CopTraceActive()) return;
    const PDU_COP_CTRL_DATA* control = request.pCopCtrlData;
    TraceCopStart(ids, request.CoPType, request.pCoPData,
                  request.pCoPData == nullptr ? 0 : request.CoPDataSize,
                  control == nullptr ? 0 : static_cast<std::uint32_t>(control->NumSendCycles),
                  control == nullptr ? 0 : static_cast<std::uint32_t>(control->NumReceiveCycles));
    if (control == nullptr || control->pExpectedResponseArray == nullptr) return;
    if (control->NumPossibleExpectedResponses == 0) return;
    TraceCopExpectedResponses(ids, control->NumPossibleExpectedResponses, TracedExpectedResponse,
                              control);
}

// The flag bytes stay the caller's, so they are read here, while they certainly exist.
bool AsksForExtendedFrame(const PDU_COP_CTRL_DATA* control) {
    constexpr std::uint32_t kFlagByte = 2;
    if (control == nullptr || control->TxFlag.pFlagData == nullptr) return false;
    if (control->TxFlag.NumFlagBytes <= kFlagByte) return false;
    return (control->TxFlag.pFlagData[kFlagByte] & 1) != 0;
}

// Empty: memory is out.
Ref<ComPrimitive> MakeComPrimitive(const LinkRecord& link, std::uint32_t hCoP,
                                   const StartRequest& request) {
    Ref<ComPrimitive> cop = MakeCounted<ComPrimitive>();
    if (!cop) return cop;
    cop->hCoP = hCoP;
    cop->hMod = link.hMod;
    cop->hCLL = link.hCLL;
    cop->CoPType = request.CoPType;
    cop->pCoPTag = request.pCoPTag;
    if (request.CoPDataSize > 0 && request.pCoPData != nullptr) {
        // Without its bytes it would be another request, which can be sent.
        cop->pCoPData = static_cast<UNUM8*>(AllocateMem(request.CoPDataSize));
        if (cop->pCoPData == nullptr) return {};
        std::memcpy(cop->pCoPData, request.pCoPData, request.CoPDataSize);
        cop->CoPDataSize = request.CoPDataSize;
    }
    cop->pCopCtrlData = CopyControlData(request.pCopCtrlData);
    cop->extended_frame = link.rawMode && AsksForExtendedFrame(request.pCopCtrlData);
    return cop;
}

// The registry first: the worker removes the ComPrimitive from there when it has executed it.
bool QueueComPrimitive(LinkRecord* link, const Ref<ComPrimitive>& cop) {
    const std::uint32_t hCoP = cop->hCoP;
    if (!link->registry.Append(Ref<ComPrimitive>(cop), hCoP)) return false;
    if (link->pending.Append(Ref<ComPrimitive>(cop), hCoP)) return true;
    link->registry.Remove(hCoP);
    return false;
}

// The registry's lock is held: the worker cannot release the ComPrimitive meanwhile.
void CancelRegistered(const char* function, ComPrimitive& cop, CancelOutcome* outcome) {
    outcome->found = true;
    outcome->last_state = cop.state.load();
    switch (outcome->last_state) {
        case PDU_COPST_IDLE:
        case PDU_COPST_EXECUTING:
        case PDU_COPST_WAITING:
            cop.abort.store(true);
            outcome->abort_set = true;
            Log(kLogTrace, "[%s] Aborting CoP id %u", function, cop.hCoP);
            break;
        case PDU_COPST_FINISHED:
            // Deliberate: only logged. For the caller there is nothing left to cancel.
            Log(kLogTrace, "[%s] CoP id %u already finished", function, cop.hCoP);
            break;
        default:
            Log(kLogTrace, "[%s] CoP id %u in invalid state", function, cop.hCoP);
            break;
    }
}

}  // namespace

T_PDU_ERROR CancelOnLink(const char* function, LinkRecord* link, std::uint32_t hCoP,
                         CancelOutcome* outcome) {
    const LinkMutexGuard mutex(link);
    if (!mutex) {
        Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", function);
        return PDU_ERR_INVALID_HANDLE;
    }
    const bool found = link->registry.Visit(
        hCoP, [&](ComPrimitive& cop) { CancelRegistered(function, cop, outcome); });
    if (found) {
        Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", function);
        return PDU_STATUS_NOERROR;
    }
    Log(kLogTrace, "[%s] Could not find CoP id %u, Returning PDU_ERR_INVALID_HANDLE", function,
        hCoP);
    return PDU_ERR_INVALID_HANDLE;
}

T_PDU_ERROR StartOnLink(const char* function, LinkRecord* link, const StartRequest& request,
                        UNUM32* phCoP) {
    if (link->state.load() == PDU_CLLST_OFFLINE) {
        Log(kLogTrace, "[%s] Returning PDU_ERR_CLL_NOT_CONNECTED", function);
        return PDU_ERR_CLL_NOT_CONNECTED;
    }
    const LinkMutexGuard mutex(link);
    if (!mutex) {
        Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", function);
        return PDU_ERR_INVALID_HANDLE;
    }
    const std::uint32_t hCoP = last_cop_handle.fetch_add(1) + 1;
    if (phCoP != nullptr) *phCoP = hCoP;
    TraceStart({link->hMod, link->hCLL, hCoP}, request);
    LogType(function, request.CoPType);
    const Ref<ComPrimitive> cop = MakeComPrimitive(*link, hCoP, request);
    if (!cop || !QueueComPrimitive(link, cop)) return PDU_ERR_FCT_FAILED;
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR, *phCoP=%u", function, hCoP);
    return PDU_STATUS_NOERROR;
}

}  // namespace tarvik
