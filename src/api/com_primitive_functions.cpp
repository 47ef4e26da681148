#include <atomic>
#include <cstring>

#include "api/com_primitives.h"
#include "api/dpdu_api.h"
#include "api/lifecycle.h"
#include "api/modules.h"
#include "support/cop_trace.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

std::atomic<std::uint32_t> last_cop_handle{0};  // process-wide; the first ComPrimitive gets 1

struct StartRequest {
    std::uint32_t CoPType;
    std::uint32_t CoPDataSize;
    const UNUM8* pCoPData;
    const PDU_COP_CTRL_DATA* pCopCtrlData;  // null is legal
    void* pCoPTag;
};

void LogControlData(const char* function, const PDU_COP_CTRL_DATA* control) {
    if (!LogEnabled(kLogTrace)) return;
    const PDU_COP_CTRL_DATA read = control == nullptr ? PDU_COP_CTRL_DATA{} : *control;
    Log(kLogTrace, "[%s]   NumSendCycles                %u", function,
        static_cast<std::uint32_t>(read.NumSendCycles));
    Log(kLogTrace, "[%s]   NumReceiveCycles             %u", function,
        static_cast<std::uint32_t>(read.NumReceiveCycles));
    const HexText flags(read.TxFlag.pFlagData,
                        read.TxFlag.pFlagData == nullptr ? 0 : read.TxFlag.NumFlagBytes);
    Log(kLogTrace, "[%s]   TxFlag                       %s", function, flags.c_str());
}

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

// Looked up here, while the flag bytes are sure to be there: they stay the caller's.
bool AsksForExtendedFrame(const PDU_COP_CTRL_DATA* control) {
    constexpr std::uint32_t kFlagByte = 2;
    if (control == nullptr || control->TxFlag.pFlagData == nullptr) return false;
    if (control->TxFlag.NumFlagBytes <= kFlagByte) return false;
    return (control->TxFlag.pFlagData[kFlagByte] & 1) != 0;
}

// Null: memory is out.
ComPrimitive* MakeComPrimitive(const LinkRecord& link, std::uint32_t hCoP,
                               const StartRequest& request) {
    ComPrimitive* cop = NewTracked<ComPrimitive>();
    if (cop == nullptr) return nullptr;
    cop->hCoP = hCoP;
    cop->hMod = link.hMod;
    cop->hCLL = link.hCLL;
    cop->CoPType = request.CoPType;
    cop->pCoPTag = request.pCoPTag;
    if (request.CoPDataSize > 0 && request.pCoPData != nullptr) {
        cop->pCoPData = static_cast<UNUM8*>(AllocateMem(request.CoPDataSize));
        if (cop->pCoPData != nullptr) {
            std::memcpy(cop->pCoPData, request.pCoPData, request.CoPDataSize);
            cop->CoPDataSize = request.CoPDataSize;
        }
    }
    cop->pCopCtrlData = CopyControlData(request.pCopCtrlData);
    cop->extended_frame = link.rawMode && AsksForExtendedFrame(request.pCopCtrlData);
    return cop;
}

// The registry first: it owns the ComPrimitive, and the worker removes it from there.
bool QueueComPrimitive(LinkRecord* link, ComPrimitive* cop) {
    const std::uint32_t hCoP = cop->hCoP;
    if (!AppendItem(&link->registry, cop, hCoP)) {
        FreeComPrimitive(cop);
        return false;
    }
    if (AppendItem(&link->pending, cop, hCoP)) return true;
    RemoveItem(&link->registry, hCoP);
    FreeComPrimitive(cop);
    return false;
}

struct CancelOutcome {
    bool found = false;
    std::uint32_t last_state = 0;
    bool abort_set = false;
};

// The registry's lock is held: the worker cannot release the ComPrimitive meanwhile.
void CancelRegistered(const char* function, ComPrimitive* cop, CancelOutcome* outcome) {
    outcome->found = true;
    outcome->last_state = cop->state.load();
    switch (outcome->last_state) {
        case PDU_COPST_IDLE:
        case PDU_COPST_EXECUTING:
        case PDU_COPST_WAITING:
            cop->abort.store(true);
            outcome->abort_set = true;
            Log(kLogTrace, "[%s] Aborting CoP id %u", function, cop->hCoP);
            break;
        case PDU_COPST_FINISHED:
            // Deliberate: only the log tells; for the caller there is nothing left to cancel.
            Log(kLogTrace, "[%s] CoP id %u already finished", function, cop->hCoP);
            break;
        default:
            Log(kLogTrace, "[%s] CoP id %u in invalid state", function, cop->hCoP);
            break;
    }
}

std::uint32_t CancelOnLink(const char* function, LinkRecord* link, std::uint32_t hCoP,
                           CancelOutcome* outcome) {
    const LinkMutexGuard mutex(link);
    if (!mutex) {
        Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", function);
        return PDU_ERR_INVALID_HANDLE;
    }
    const bool found = VisitItem(link->registry, hCoP, [&](void* object) {
        CancelRegistered(function, static_cast<ComPrimitive*>(object), outcome);
    });
    if (found) {
        Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", function);
        return PDU_STATUS_NOERROR;
    }
    Log(kLogTrace, "[%s] Could not find CoP id %u, Returning PDU_ERR_INVALID_HANDLE", function,
        hCoP);
    return PDU_ERR_INVALID_HANDLE;
}

std::uint32_t StartOnLink(const char* function, LinkRecord* link, const StartRequest& request,
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
    ComPrimitive* cop = MakeComPrimitive(*link, hCoP, request);
    if (cop == nullptr || !QueueComPrimitive(link, cop)) return PDU_ERR_FCT_FAILED;
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR, *phCoP=%u", function, hCoP);
    return PDU_STATUS_NOERROR;
}

}  // namespace
}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUStartComPrimitive(UNUM32 hMod, UNUM32 hCLL, T_PDU_COPT CoPType,
                                                     UNUM32 CoPDataSize, UNUM8* pCoPData,
                                                     PDU_COP_CTRL_DATA* pCopCtrlData, void* pCoPTag,
                                                     UNUM32* phCoP) {
    const ApiCall call;
    Log(kLogTrace, "[%s] (%u, %u, %u, %u, %p, %p, %p, %p)", __func__, hMod, hCLL, CoPType,
        CoPDataSize, static_cast<void*>(pCoPData), static_cast<void*>(pCopCtrlData), pCoPTag,
        static_cast<void*>(phCoP));
    LogControlData(__func__, pCopCtrlData);
    const LinkRef link = FindLink(hMod, hCLL);
    if (!link) {
        Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", __func__);
        return PDU_ERR_INVALID_HANDLE;
    }
    return StartOnLink(__func__, link.Get(),
                       {CoPType, CoPDataSize, pCoPData, pCopCtrlData, pCoPTag}, phCoP);
}

extern "C" T_PDU_ERROR PDU_CALL PDUCancelComPrimitive(UNUM32 hMod, UNUM32 hCLL, UNUM32 hCoP) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (hMod=%u, hCLL=%u, hCoP=%u)", __func__, hMod, hCLL, hCoP);
    const TraceCop ids{hMod, hCLL, hCoP};
    TraceCopCancelReq(ids);
    const LinkRef link = FindLink(hMod, hCLL);
    CancelOutcome outcome;
    std::uint32_t status = PDU_ERR_INVALID_HANDLE;
    if (link) {
        status = CancelOnLink(__func__, link.Get(), hCoP, &outcome);
    } else {
        Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", __func__);
    }
    TraceCopCancelResult(ids, outcome.found, outcome.last_state, outcome.abort_set);
    return status;
}
