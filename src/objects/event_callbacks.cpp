#include "objects/event_callbacks.h"

#include <atomic>
#include <utility>

#include "objects/lifecycle.h"
#include "support/log.h"

namespace tarvik {

Immortal<ItemQueue<EventPtr>> SystemEventQueue;

namespace {

std::atomic<CALLBACKFNC> system_callback{nullptr};
std::atomic<CALLBACKFNC> module_callback{nullptr};  // one for all modules

bool InvokeSystemCallback(const char* function, std::uint32_t hMod, std::uint32_t hCLL,
                          void* pCllTag, void* pAPITag) {
    Log(kLogTrace, "[%s] SystemEventCBR (%u, %u)", function, hMod, hCLL);
    const CALLBACKFNC callback = system_callback.load();
    if (callback == nullptr) return false;
    callback(PDU_EVT_DATA_AVAILABLE, hMod, hCLL, pCllTag, pAPITag);
    return true;
}

}  // namespace

void SetSystemCallback(CALLBACKFNC callback) { system_callback.store(callback); }
void SetModuleCallback(CALLBACKFNC callback) { module_callback.store(callback); }

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
    if (link->detached.load()) return false;
    Log(kLogTrace, "[%s] ComLogicalLinkEventCBR (%u, %u)", __func__, link->hMod, link->hCLL);
    const CALLBACKFNC callback = link->running.load() ? link->callback.load() : nullptr;
    if (callback != nullptr) {
        callback(PDU_EVT_DATA_AVAILABLE, link->hMod, link->hCLL, link->CllTag, ApiTag());
        return true;
    }
    Log(kLogTrace, "[%s] -> fallback to module", __func__);
    return CallModuleEventCBR(link->hMod, link->hCLL, link->CllTag, ApiTag());
}

void AppendLinkEvent(LinkRecord* link, EventPtr item) {
    if (item == nullptr || !link->running.load()) return;
    link->events.Append(std::move(item), kNoKey);
}

void NotifySystemModuleListChanged() {
    Log(kLogTrace, "[%s] Enqueue system info event: PDU_INFO_MODULE_LIST_CHG", __func__);
    EventPtr item = MakeInfoItem(PDU_INFO_MODULE_LIST_CHG);
    if (item != nullptr) SystemEventQueue->Append(std::move(item), kNoKey);
    InvokeSystemCallback(__func__, PDU_HANDLE_UNDEF, PDU_HANDLE_UNDEF, nullptr, ApiTag());
}

}  // namespace tarvik
