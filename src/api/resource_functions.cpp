#include "dpdu_api.h"
#include "objects/lifecycle.h"
#include "objects/link_record.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

struct ResourceIds {
    std::uint32_t ids[2];
    std::uint32_t count;
};

ResourceIds SelectResources(const char* function, std::uint32_t bus_type, std::uint32_t protocol) {
    switch (DecideProtocol(bus_type, protocol)) {
        case ProtocolKind::kDoip:
            Log(kLogTrace, "[%s]   Returning DoIP resource ID: 2002", function);
            return {{kResourceDoip, 0}, 1};
        case ProtocolKind::kCan:
            Log(kLogTrace, "[%s]   Returning CAN resource ID: 2001", function);
            return {{kResourceCan, 0}, 1};
        case ProtocolKind::kUnknown:
            break;
    }
    if (bus_type == 0 && protocol == 0) {
        Log(kLogTrace, "[%s]   Returning all resources: 2001 (CAN), 2002 (DoIP)", function);
        return {{kResourceCan, kResourceDoip}, 2};
    }
    Log(kLogTrace, "[%s]   No matching resources found", function);
    return {{0, 0}, 0};
}

// One module entry, with the ids in a separate block. Null: memory is out.
PDU_RSC_ID_ITEM* MakeResourceIdItem(std::uint32_t hMod, const ResourceIds& resources) {
    auto item = AllocateRecord<PDU_RSC_ID_ITEM>();
    auto entry = AllocateRecord<PDU_RSC_ID_ITEM_DATA>();
    Tracked<UNUM32> ids(static_cast<UNUM32*>(AllocateArray(resources.count, sizeof(UNUM32))));
    if (item == nullptr || entry == nullptr || ids == nullptr) return nullptr;
    for (std::uint32_t i = 0; i < resources.count; ++i)
        ids.get()[i] = resources.ids[i];
    entry->hMod = hMod;
    entry->NumIds = resources.count;
    entry->pResourceIdArray = ids.release();
    item->ItemType = PDU_IT_RSC_ID;
    item->NumModules = 1;
    item->pResourceIdDataArray = entry.release();
    return item.release();
}

}  // namespace
}  // namespace tarvik

using namespace tarvik;

extern "C" T_PDU_ERROR PDU_CALL PDUGetResourceIds(UNUM32 hMod, PDU_RSC_DATA* pResourceIdData,
                                                  PDU_RSC_ID_ITEM** pResourceIdList) {
    const ApiCall call;
    const PDU_RSC_DATA wanted = pResourceIdData == nullptr ? PDU_RSC_DATA{} : *pResourceIdData;
    Log(kLogTrace, "[%s] (%u, BusTypeId: %u, ProtocolId: %u, NumPinData: %u)", __func__, hMod,
        wanted.BusTypeId, wanted.ProtocolId, wanted.NumPinData);
    if (pResourceIdList == nullptr) {
        Log(kLogTrace, "[%s] pResourceIdList is NULL, Returning PDU_ERR_INVALID_PARAMETERS",
            __func__);
        return PDU_ERR_INVALID_PARAMETERS;
    }
    PDU_RSC_ID_ITEM* item =
        MakeResourceIdItem(hMod, SelectResources(__func__, wanted.BusTypeId, wanted.ProtocolId));
    if (item == nullptr) return PDU_ERR_FCT_FAILED;
    *pResourceIdList = item;
    Log(kLogTrace, "[%s] Returning PDU_STATUS_NOERROR", __func__);
    return PDU_STATUS_NOERROR;
}
