#include "objects/links.h"

#include <cstddef>
#include <cstring>

#include "objects/lifecycle.h"
#include "objects/modules.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
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
    LinkRef link = MakeCounted<LinkRecord>();
    if (!link) return link;
    link->hMod = hMod;
    link->hCLL = hCLL;
    link->device = device;
    link->mutex = OsMutexCreate();
    link->reception_mutex = OsMutexCreate();
    Log(kLogTrace, "[%s] Created Mutex handle 0x%p for LogicalLink #%u (Module #%u)", __func__,
        link->mutex == nullptr ? nullptr : OsMutexHandle(link->mutex), hCLL, hMod);
    return link;
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

}  // namespace

T_PDU_ERROR CreateLink(const char* function, const LinkRequest& request, StartLinkThreads start,
                       std::uint32_t* hCLL) {
    // Held throughout: a destruct that has begun sees the link or prevents it.
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
    if (!link || link->mutex == nullptr || link->reception_mutex == nullptr) {
        return PDU_ERR_FCT_FAILED;
    }
    link->CllTag = request.tag;
    link->unique_table = UniqueRespTable::Adopt(CreatePduUniqueResponseTable());
    ApplyResourceData(function, link.Get(), request.resource);
    ApplyCreateFlag(function, link.Get(), request.flag);
    link->pending.Initialize();
    link->registry.Initialize();
    link->events.Initialize();
    link->raw_receive.Initialize();
    link->running.store(true);
    if (!start(function, link.Get())) return PDU_ERR_FCT_FAILED;
    slot.links[handle] = link.Detach();
    *hCLL = handle;
    return PDU_STATUS_NOERROR;
}

}  // namespace tarvik
