#include "dpdu_api.h"
#include "objects/lifecycle.h"
#include "objects/links.h"
#include "objects/modules.h"
#include "objects/state_changes.h"
#include "support/log.h"
#include "worker/comm_thread.h"

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUCreateComLogicalLink(UNUM32 hMod, PDU_RSC_DATA* pRscData,
                                                        UNUM32 resourceId, void* pCllTag,
                                                        UNUM32* phCLL,
                                                        PDU_FLAG_DATA* pCllCreateFlag) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (hMod=%u, resourceId=%u)", __func__, hMod, resourceId);
    UNUM32 hCLL = PDU_HANDLE_UNDEF;
    const std::uint32_t status =
        CreateLink(__func__, {hMod, pRscData, pCllTag, pCllCreateFlag}, StartWorker, &hCLL);
    if (status != PDU_STATUS_NOERROR) return status;
    if (phCLL != nullptr) *phCLL = hCLL;
    Log(kLogTrace, "[%s]   Created Logical Link #%u", __func__, hCLL);
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR, *phCLL=%u", __func__, hCLL);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDUDestroyComLogicalLink(UNUM32 hMod, UNUM32 hCLL) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (hMod=%u, hCLL=%u)", __func__, hMod, hCLL);
    Log(kLogTrace, "[%s]   Destroy Logical Link #%u", __func__, hCLL);
    const LinkRef link = FindLink(hMod, hCLL);
    if (link) {
        LinkMutexGuard mutex(link.Get());
        if (mutex) {
            link->running.store(false);
            if (!OsThreadIsCurrent(link->thread)) link->may_exchange.store(false);
            // Deliberate: the mutex stays owned, so that no further call on the link can enter.
            mutex.Keep();
            link->pending.Wake();
            Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
            return PDU_STATUS_NOERROR;
        }
    }
    Log(kLogTrace, "[%s]   Destroy Logical Link #%u - Returning PDU_ERR_INVALID_HANDLE", __func__,
        hCLL);
    return PDU_ERR_INVALID_HANDLE;
}

extern "C" T_PDU_ERROR PDU_CALL PDUConnect(UNUM32 hMod, UNUM32 hCLL) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (%u, %u)", __func__, hMod, hCLL);
    const LinkRef link = FindLink(hMod, hCLL);
    if (!link) {
        Log(kLogTrace, "[%s]   PDUConnect Logical Link #%u - Returning PDU_ERR_INVALID_HANDLE",
            __func__, hCLL);
        return PDU_ERR_INVALID_HANDLE;
    }
    if (link->state.load() == PDU_CLLST_ONLINE) {
        Log(kLogTrace,
            "[%s]   PDUConnect Logical Link #%u - already online, Returning PDU_ERR_CLL_CONNECTED",
            __func__, hCLL);
        return PDU_ERR_CLL_CONNECTED;
    }
    SetLinkState(link.Get(), PDU_CLLST_ONLINE);
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDUDisconnect(UNUM32 hMod, UNUM32 hCLL) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (%u, %u)", __func__, hMod, hCLL);
    const LinkRef link = FindLink(hMod, hCLL);
    if (!link) {
        Log(kLogTrace, "[%s]   PDUDisconnect Logical Link #%u - Returning PDU_ERR_INVALID_HANDLE",
            __func__, hCLL);
        return PDU_ERR_INVALID_HANDLE;
    }
    if (link->state.load() == PDU_CLLST_OFFLINE) {
        Log(kLogTrace,
            "[%s]   PDUDisconnect Logical Link #%u - already offline, Returning "
            "PDU_ERR_CLL_NOT_CONNECTED",
            __func__, hCLL);
        return PDU_ERR_CLL_NOT_CONNECTED;
    }
    SetLinkState(link.Get(), PDU_CLLST_OFFLINE);
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDUGetUniqueRespIdTable(
    UNUM32 hMod, UNUM32 hCLL, PDU_UNIQUE_RESP_ID_TABLE_ITEM** pUniqueRespIdTable) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (hMod=%u, hCLL=%u)", __func__, hMod, hCLL);
    const LinkRef link = FindLink(hMod, hCLL);
    if (link && pUniqueRespIdTable == nullptr) {
        Log(kLogTrace, "[%s] pUniqueRespIdTable is NULL, Returning PDU_ERR_INVALID_PARAMETERS",
            __func__);
        return PDU_ERR_INVALID_PARAMETERS;
    }
    if (link) {
        const LinkMutexGuard mutex(link.Get());
        if (mutex) {
            *pUniqueRespIdTable = link->unique_table
                                      ? DuplicatePduUniqueResponseTable(&link->unique_table->Item())
                                      : nullptr;
            Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
            return PDU_STATUS_NOERROR;
        }
    }
    Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", __func__);
    return PDU_ERR_INVALID_HANDLE;
}

extern "C" T_PDU_ERROR PDU_CALL PDUSetUniqueRespIdTable(
    UNUM32 hMod, UNUM32 hCLL, PDU_UNIQUE_RESP_ID_TABLE_ITEM* pUniqueRespIdTable) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (hMod=%u, hCLL=%u, entries=%u)", __func__, hMod, hCLL,
        pUniqueRespIdTable == nullptr ? 0 : pUniqueRespIdTable->NumEntries);
    const LinkRef link = FindLink(hMod, hCLL);
    bool installed = false;
    if (link) {
        const LinkMutexGuard mutex(link.Get());
        if (mutex) {
            // A failed copy installs no table; the worker then reports it.
            link->unique_table =
                UniqueRespTable::Adopt(DuplicatePduUniqueResponseTable(pUniqueRespIdTable));
            installed = true;
        }
    }
    if (!installed) {
        Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", __func__);
        return PDU_ERR_INVALID_HANDLE;
    }
    if (pUniqueRespIdTable != nullptr) DumpRespIdTable(pUniqueRespIdTable);
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}
