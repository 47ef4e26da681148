#include "api/events.h"

#include <atomic>

#include "api/dpdu_api.h"
#include "api/items.h"
#include "api/lifecycle.h"
#include "api/modules.h"
#include "support/cop_trace.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {

Immortal<ItemQueue> SystemEventQueue;

namespace {

std::atomic<CALLBACKFNC> system_callback{nullptr};
std::atomic<CALLBACKFNC> module_callback{nullptr};  // one for all modules

// The queue that a pair of handles names, with the reference that keeps it in place.
struct SelectedQueue {
    ItemQueue* queue = nullptr;
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

bool InvokeSystemCallback(const char* function, std::uint32_t hMod, std::uint32_t hCLL,
                          void* pCllTag, void* pAPITag) {
    Log(kLogTrace, "[%s] SystemEventCBR (%u, %u)", function, hMod, hCLL);
    const CALLBACKFNC callback = system_callback.load();
    if (callback == nullptr) return false;
    callback(PDU_EVT_DATA_AVAILABLE, hMod, hCLL, pCllTag, pAPITag);
    return true;
}

}  // namespace

bool CallSystemEventCBR(std::uint32_t hMod, std::uint32_t hCLL, void* pCllTag, void* pAPITag) {
    return InvokeSystemCallback(__func__, hMod, hCLL, pCllTag, pAPITag);
}

bool CallModuleEventCBR(std::uint32_t hMod, std::uint32_t hCLL, void* pCllTag, void* pAPITag) {
    Log(kLogTrace, "[%s] ModuleEventCBR (%u, %u)", __func__, hMod, hCLL);
    if (const CALLBACKFNC callback = module_callback.load(); callback != nullptr) {
        callback(PDU_EVT_DATA_AVAILABLE, hMod, hCLL, pCllTag, pAPITag);
        return true;
    }
    Log(kLogTrace, "[%s] -> fallback to system", __func__);
    return InvokeSystemCallback(__func__, hMod, hCLL, pCllTag, pAPITag);
}

bool CallComLogicalLinkEventCBR(LinkRecord* link) {
    Log(kLogTrace, "[%s] ComLogicalLinkEventCBR (%u, %u)", __func__, link->hMod, link->hCLL);
    const CALLBACKFNC callback = link->running.load() ? link->callback.load() : nullptr;
    if (callback != nullptr) {
        callback(PDU_EVT_DATA_AVAILABLE, link->hMod, link->hCLL, link->CllTag, ApiTag());
        return true;
    }
    Log(kLogTrace, "[%s] -> fallback to module", __func__);
    return CallModuleEventCBR(link->hMod, link->hCLL, link->CllTag, ApiTag());
}

void AppendLinkEvent(LinkRecord* link, PDU_EVENT_ITEM* item) {
    if (item == nullptr) return;
    if (link->running.load() && AppendItem(&link->events, item, kNoKey)) return;
    ReleaseQueuedEvent(item);
}

void NotifySystemModuleListChanged() {
    Log(kLogTrace, "[%s] Enqueue system info event: PDU_INFO_MODULE_LIST_CHG", __func__);
    PDU_EVENT_ITEM* item = MakeInfoItem(PDU_INFO_MODULE_LIST_CHG);
    if (item != nullptr && !AppendItem(&*SystemEventQueue, item, kNoKey)) {
        ReleaseQueuedEvent(item);
    }
    InvokeSystemCallback(__func__, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr, ApiTag());
}

void ReleaseQueuedEvent(void* item) {
    auto* event = static_cast<PDU_EVENT_ITEM*>(item);
    if (event->ItemType == PDU_IT_INFO) {
        FreeMem(event);  // FreePduItem never releases one: it may be the application's
    } else {
        FreePduItem(static_cast<PDU_ITEM*>(item));
    }
}

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
    void* item = selected.queue == nullptr ? nullptr : TakeItem(selected.queue);
    if (item == nullptr) {
        Log(kLogMemory, "[%s] Returning PDU_ERR_EVENT_QUEUE_EMPTY", __func__);
        return PDU_ERR_EVENT_QUEUE_EMPTY;
    }
    *pEventItem = static_cast<PDU_EVENT_ITEM*>(item);
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
        system_callback.store(EventCallbackFunction);
        Log(kLogTrace, "[%s] %sistered SystemEventCBR", __func__, prefix);
    } else if (hCLL == PDU_HANDLE_UNDEF) {
        module_callback.store(EventCallbackFunction);
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
