#pragma once

// Items from the library, returned to it at the end of a scope.

#include <memory>
#include <mutex>
#include <vector>

#include "conformance/framework/library.h"

namespace conformance {

struct DestroyItem {
    template <typename Item>
    void operator()(Item* item) const {
        Pdu().PDUDestroyItem(reinterpret_cast<PDU_ITEM*>(item));
    }
};
template <typename Item>
using ItemPtr = std::unique_ptr<Item, DestroyItem>;

// What PDUIoCtl returns stays allocated until the process ends. The leak checker, which runs after
// everything else is gone, must find a reference to it.
inline PDU_DATA_ITEM* KeepForGood(PDU_DATA_ITEM* output) {
    static std::mutex lock;
    static auto* const kept = new std::vector<PDU_DATA_ITEM*>;
    const std::lock_guard hold(lock);
    kept->push_back(output);
    return output;
}

// The next event of a queue; empty if there is none.
inline ItemPtr<PDU_EVENT_ITEM> NextEvent(UNUM32 hMod, UNUM32 hCLL) {
    PDU_EVENT_ITEM* item = nullptr;
    Pdu().PDUGetEventItem(hMod, hCLL, &item);
    return ItemPtr<PDU_EVENT_ITEM>(item);
}

inline ItemPtr<PDU_MODULE_ITEM> GetModuleIds() {
    PDU_MODULE_ITEM* item = nullptr;
    Pdu().PDUGetModuleIds(&item);
    return ItemPtr<PDU_MODULE_ITEM>(item);
}

inline ItemPtr<PDU_UNIQUE_RESP_ID_TABLE_ITEM> GetUniqueTable(UNUM32 hMod, UNUM32 hCLL) {
    PDU_UNIQUE_RESP_ID_TABLE_ITEM* item = nullptr;
    Pdu().PDUGetUniqueRespIdTable(hMod, hCLL, &item);
    return ItemPtr<PDU_UNIQUE_RESP_ID_TABLE_ITEM>(item);
}

// The state that a status item reports.
inline UNUM32 StatusOf(const PDU_EVENT_ITEM& item) {
    return *static_cast<const PDU_STATUS_DATA*>(item.pData);
}

}  // namespace conformance
