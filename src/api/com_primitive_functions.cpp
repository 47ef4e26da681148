#include "dpdu_api.h"
#include "objects/com_primitives.h"
#include "objects/lifecycle.h"
#include "objects/modules.h"
#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik {
namespace {

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
