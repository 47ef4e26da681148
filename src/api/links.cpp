#include "api/links.h"

#include <cstring>

#include "api/dpdu_api.h"
#include "api/events.h"
#include "api/items.h"
#include "api/lifecycle.h"
#include "api/modules.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {

void SetLinkState(LinkRecord* link, std::uint32_t new_state) {
    if (!link->running.load()) return;
    link->state.store(new_state);
    AppendLinkEvent(link, MakeStatusItem(PDU_HANDLE_UNDEF, nullptr, new_state));
    CallComLogicalLinkEventCBR(link);
}

namespace {

const char* ProtocolName(ProtocolKind kind) {
    switch (kind) {
        case ProtocolKind::kUnknown:
            return "Unknown";
        case ProtocolKind::kCan:
            return "CAN";
        case ProtocolKind::kDoip:
            return "DoIP";
    }
    return "Unknown";
}

void ApplyResourceData(const char* function, LinkRecord* link, const PDU_RSC_DATA* resource) {
    if (resource == nullptr) {
        Log(kLogTrace, "[%s]   No resource data provided", function);
        return;
    }
    link->BusTypeId = resource->BusTypeId;
    link->ProtocolId = resource->ProtocolId;
    link->protocolKind = DecideProtocol(resource->BusTypeId, resource->ProtocolId);
    Log(kLogTrace, "[%s]   Protocol: %s (BusType: %u, Protocol: %u)", function,
        ProtocolName(link->protocolKind), resource->BusTypeId, resource->ProtocolId);
}

void ApplyCreateFlag(const char* function, LinkRecord* link, const PDU_FLAG_DATA* flag) {
    if (flag == nullptr || flag->NumFlagBytes < 1 || flag->pFlagData == nullptr) return;
    const UNUM8 first = flag->pFlagData[0];
    link->rawMode = (first & 0x80) != 0;
    // The checksum option means nothing without raw mode; applications set it on ordinary links.
    link->rawChecksum = link->rawMode && (first & 0x40) != 0;
    if (link->rawMode) {
        Log(kLogTrace, "[%s]   Raw mode: Checksum %s", function, link->rawChecksum ? "ON" : "OFF");
    }
}

LinkRef LogicalLinkAllocate(std::uint32_t hMod, std::uint32_t hCLL, DeviceQueues* device) {
    LinkRef link(NewTracked<LinkRecord>());
    if (!link) return link;
    link->hMod = hMod;
    link->hCLL = hCLL;
    link->device = device;
    link->mutex = OsMutexCreate();
    Log(kLogTrace, "[%s] Created Mutex handle 0x%p for LogicalLink #%u (Module #%u)", __func__,
        link->mutex == nullptr ? nullptr : OsMutexHandle(link->mutex), hCLL, hMod);
    return link;
}

void StartWorker(const char* function, LinkRecord* link) {
    LinkRef worker_reference = ShareLink(link);
    link->thread = OsThreadStart(CommThreadFunc, link, "Tarvik CommThreadFunc");
    if (link->thread != nullptr) worker_reference.Detach();
    Log(kLogTrace, "[%s] Created Thread handle 0x%p (CommThreadFunc) for LogicalLink #%u", function,
        link->thread == nullptr ? nullptr : OsThreadHandle(link->thread), link->hCLL);
}

// The array grows by one entry per creation. False: memory is out.
bool ReserveLinkHandle(ModuleSlot& slot) {
    constexpr std::size_t kEntrySize = sizeof(LinkRecord*);  // NOLINT(bugprone-sizeof-expression)
    auto** larger =
        static_cast<LinkRecord**>(AllocateArray(slot.link_count + std::size_t{1}, kEntrySize));
    if (larger == nullptr) return false;
    if (slot.link_count > 0) {
        std::memcpy(larger, slot.links, slot.link_count * kEntrySize);
    }
    FreeMem(slot.links);
    slot.links = larger;
    ++slot.link_count;
    return true;
}

struct LinkRequest {
    std::uint32_t hMod;
    const PDU_RSC_DATA* resource;
    void* tag;
    const PDU_FLAG_DATA* flag;
};

// The module lock is held throughout: a destruct that has begun sees the link or prevents it.
std::uint32_t CreateLink(const char* function, const LinkRequest& request, std::uint32_t* hCLL) {
    const LockGuard hold(*ModuleDevicesLock);
    if (!CheckModuleHandle(function, request.hMod)) return PDU_ERR_INVALID_HANDLE;
    if (LibraryState() != Lifecycle::kConstructed) {
        LogModuleNotFound(function, request.hMod);
        return PDU_ERR_INVALID_HANDLE;
    }
    ModuleSlot& slot = ModuleDevices->slots[request.hMod];
    const std::uint32_t handle = slot.link_count;
    if (!ReserveLinkHandle(slot)) return PDU_ERR_FCT_FAILED;
    LinkRef link = LogicalLinkAllocate(request.hMod, handle, slot.queues);
    if (!link || link->mutex == nullptr) return PDU_ERR_FCT_FAILED;
    link->CllTag = request.tag;
    link->unique_table = UniqueRespTable::Adopt(CreatePduUniqueResponseTable());
    ApplyResourceData(function, link.Get(), request.resource);
    ApplyCreateFlag(function, link.Get(), request.flag);
    InitializeQueue(&link->pending);
    InitializeQueue(&link->registry);
    InitializeQueue(&link->events);
    InitializeQueue(&link->raw_receive);
    link->running.store(true);
    StartWorker(function, link.Get());
    if (link->thread == nullptr) return PDU_ERR_FCT_FAILED;
    slot.links[handle] = link.Detach();
    *hCLL = handle;
    return PDU_STATUS_NOERROR;
}

}  // namespace
}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUCreateComLogicalLink(UNUM32 hMod, PDU_RSC_DATA* pRscData,
                                                        UNUM32 resourceId, void* pCllTag,
                                                        UNUM32* phCLL,
                                                        PDU_FLAG_DATA* pCllCreateFlag) {
    const ApiCall call;
    Log(kLogTrace, "[%s] Called (hMod=%u, resourceId=%u)", __func__, hMod, resourceId);
    UNUM32 hCLL = PDU_HANDLE_UNDEF;
    const std::uint32_t status =
        CreateLink(__func__, {hMod, pRscData, pCllTag, pCllCreateFlag}, &hCLL);
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
            // Deliberate: the mutex stays owned, so that no further call on the link can enter.
            mutex.Keep();
            WakeItemQueue(&link->pending);
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
    if (link) {
        const LinkMutexGuard mutex(link.Get());
        if (mutex) {
            *pUniqueRespIdTable =
                link->unique_table == nullptr
                    ? nullptr
                    : DuplicatePduUniqueResponseTable(&link->unique_table->Item());
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
            UniqueRespTable* table =
                UniqueRespTable::Adopt(DuplicatePduUniqueResponseTable(pUniqueRespIdTable));
            UniqueRespTable::Release(link->unique_table);
            link->unique_table = table;
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
