#include "dpdu_api.h"
#include "objects/event_callbacks.h"
#include "objects/items.h"
#include "objects/lifecycle.h"
#include "objects/modules.h"
#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik {
namespace {

// The queue that a pair of handles names, with the reference that keeps it alive.
struct SelectedQueue {
    ItemQueue<EventPtr>* queue = nullptr;
    LinkRef link;
};

SelectedQueue SelectQueue(std::uint32_t hMod, std::uint32_t hCLL) {
    SelectedQueue selected;
    if (hMod == PDU_HANDLE_UNDEF) {
        selected.queue = &*SystemEventQueue;
        return selected;
    }
    if (hCLL != PDU_HANDLE_UNDEF) selected.link = FindLink(hMod, hCLL);
    if (selected.link) {
        selected.queue = &selected.link->events;
    } else if (hMod < kMaxModules) {
        selected.queue = &ModuleDevices->slots[hMod].events;
    }
    return selected;
}

std::uint32_t RegisterLinkCallback(const char* function, std::uint32_t hMod, std::uint32_t hCLL,
                                   CALLBACKFNC callback) {
    const LinkRef link = FindLink(hMod, hCLL);
    if (!link) {
        Log(kLogTrace, "[%s] Returning PDU_ERR_INVALID_HANDLE", function);
        return PDU_ERR_INVALID_HANDLE;
    }
    link->callback.store(callback);
    return PDU_STATUS_NOERROR;
}

}  // namespace
}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUGetEventItem(UNUM32 hMod, UNUM32 hCLL,
                                                PDU_EVENT_ITEM** pEventItem) {
    const ApiCall call;
    Log(kLogMemory, "[%s] Called (hMod=%u, hCLL=%u)", __func__, hMod, hCLL);
    if (pEventItem == nullptr) {
        Log(kLogTrace, "[%s] pEventItem is NULL, Returning PDU_ERR_INVALID_PARAMETERS", __func__);
        return PDU_ERR_INVALID_PARAMETERS;
    }
    *pEventItem = nullptr;
    const SelectedQueue selected = SelectQueue(hMod, hCLL);
    EventPtr item = selected.queue == nullptr ? nullptr : selected.queue->Take();
    if (item == nullptr) {
        Log(kLogMemory, "[%s] Returning PDU_ERR_EVENT_QUEUE_EMPTY", __func__);
        return PDU_ERR_EVENT_QUEUE_EMPTY;
    }
    *pEventItem = item.release();
    Log(kLogMemory, "[%s] Returning PDU_STATUS_NOERROR, got event", __func__);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDURegisterEventCallback(UNUM32 hMod, UNUM32 hCLL,
                                                         CALLBACKFNC EventCallbackFunction) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (%u, %u, %p)", __func__, hMod, hCLL,
        reinterpret_cast<void*>(EventCallbackFunction));
    const char* prefix = EventCallbackFunction == nullptr ? "Dereg" : "Reg";
    if (hMod == PDU_HANDLE_UNDEF) {
        SetSystemCallback(EventCallbackFunction);
        Log(kLogTrace, "[%s] %sistered SystemEventCBR", __func__, prefix);
    } else if (hCLL == PDU_HANDLE_UNDEF) {
        SetModuleCallback(EventCallbackFunction);
        Log(kLogTrace, "[%s] %sistered ModuleEventCBR", __func__, prefix);
    } else {
        Log(kLogTrace, "[%s] %sistered ComLogicalLinkEventCBR", __func__, prefix);
        const std::uint32_t status =
            RegisterLinkCallback(__func__, hMod, hCLL, EventCallbackFunction);
        if (status != PDU_STATUS_NOERROR) return status;
    }
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}

extern "C" T_PDU_ERROR PDU_CALL PDUDestroyItem(PDU_ITEM* pItem) {
    const ApiCall call;
    Log(kLogMemory, "[%s] Called (pItem=%p)", __func__, static_cast<void*>(pItem));
    if (!IsConstructed()) {
        Log(kLogTrace, "[%s] PDU API not constructed, Returning PDU_ERR_PDUAPI_NOT_CONSTRUCTED",
            __func__);
        return PDU_ERR_PDUAPI_NOT_CONSTRUCTED;
    }
    if (pItem != nullptr && CopTraceActive() &&
        (pItem->ItemType == PDU_IT_RESULT || pItem->ItemType == PDU_IT_STATUS ||
         pItem->ItemType == PDU_IT_ERROR)) {
        TraceItemDestroy(pItem->ItemType, reinterpret_cast<PDU_EVENT_ITEM*>(pItem)->hCop);
    }
    FreePduItem(pItem);
    return PDU_STATUS_NOERROR;
}
