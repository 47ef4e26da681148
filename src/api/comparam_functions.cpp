// The exported functions that reach the ComParam table.

#include "comparam/comparams.h"
#include "dpdu_api.h"
#include "objects/lifecycle.h"
#include "support/log.h"

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUGetComParam(UNUM32 hMod, UNUM32 hCLL, UNUM32 ParamId,
                                               PDU_PARAM_ITEM** pParamItem) {
    const ApiCall call;
    Log(kLogTrace, "[%s] (%u, %u, %u, ...)", __func__, hMod, hCLL, ParamId);
    PDU_PARAM_ITEM* item = ComParamItem(ParamId);
    if (item == nullptr) {
        Log(kLogTrace, "[%s] Returning PDU_ERR_COMPARAM_NOT_SUPPORTED", __func__);
        return PDU_ERR_COMPARAM_NOT_SUPPORTED;
    }
    // Deliberate: the row's own item, not a copy, and whatever the handles are.
    if (pParamItem != nullptr) *pParamItem = item;
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDUSetComParam(UNUM32, UNUM32, PDU_PARAM_ITEM* pParamItem) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called", __func__);
    return SetComParam(pParamItem, __func__);
}
