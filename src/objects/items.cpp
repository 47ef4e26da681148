#include "objects/items.h"

#include "comparam/param_values.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

template <typename Data>
struct EventBlock {
    PDU_EVENT_ITEM item;
    Data data;
};

// An item and its data in one block, for item types whose data is not released separately.
template <typename Data>
Tracked<EventBlock<Data>> MakeEventBlock(T_PDU_IT type, std::uint32_t hCop, void* pCoPTag) {
    auto block = AllocateRecord<EventBlock<Data>>();
    if (block != nullptr) block->item = {type, hCop, pCoPTag, TimestampUs(), &block->data};
    return block;
}

template <typename Data>
EventPtr ToEvent(Tracked<EventBlock<Data>>& block) {
    return EventPtr(block == nullptr ? nullptr : &block.release()->item);
}

constexpr std::uint32_t kFlagBytes = 4;

Tracked<UNUM8> MakeFlagBytes() {
    return Tracked<UNUM8>(static_cast<UNUM8*>(AllocateMem(kFlagBytes)));
}

// ---- Releasing, by item type -------------------------------------------------------------------

void FreeResult(PDU_EVENT_ITEM* item) {
    if (const auto* result = static_cast<PDU_RESULT_DATA*>(item->pData); result != nullptr) {
        FreeMem(result->pDataBytes);
        FreeMem(result->TimestampFlags.pFlagData);
        FreeMem(result->RxFlag.pFlagData);
    }
    FreeMem(item);
}

void FreeStatus(PDU_EVENT_ITEM* item) {
    FreeMem(item->pData);
    FreeMem(item);
}

void FreeResourceIds(PDU_RSC_ID_ITEM* item) {
    Log(kLogTrace, "[%s] PDU_IT_RSC_ID", "FreePduItem");
    if (item->pResourceIdDataArray != nullptr) {
        // Deliberate: of the first entry only. There is never a second.
        FreeMem(item->pResourceIdDataArray->pResourceIdArray);
        FreeMem(item->pResourceIdDataArray);
    }
    FreeMem(item);
}

void FreeModuleIds(PDU_MODULE_ITEM* item) {
    if (item->pModuleData != nullptr) {
        for (std::uint32_t i = 0; i < item->NumEntries; ++i) {
            FreeMem(item->pModuleData[i].pVendorAdditionalInfo);
            FreeMem(item->pModuleData[i].pVendorModuleName);
        }
        FreeMem(item->pModuleData);
    }
    FreeMem(item);
}

void FreeEntryValues(const PDU_ECU_UNIQUE_RESP_DATA& entry) {
    if (entry.pParams == nullptr) return;
    for (std::uint32_t i = 0; i < entry.NumParamItems; ++i) {
        if (!FreeParamValue(entry.pParams[i])) {
            Log(kLogTrace, "[%s] ERROR - cannot free", "FreePduItem");
        }
    }
}

void FreeUniqueRespIdTable(PDU_UNIQUE_RESP_ID_TABLE_ITEM* item) {
    Log(kLogTrace, "[%s] PDU_IT_UNIQUE_RESP_ID_TABLE", "FreePduItem");
    if (item->pUniqueData != nullptr) {
        for (std::uint32_t i = 0; i < item->NumEntries; ++i)
            FreeEntryValues(item->pUniqueData[i]);
        // Deliberate: the first entry's only. The arrays of all entries are one block that starts
        // with the first entry's.
        FreeMem(item->pUniqueData->pParams);
        FreeMem(item->pUniqueData);
    }
    FreeMem(item);
}

template <typename Item>
Item* As(PDU_ITEM* item) {
    return reinterpret_cast<Item*>(item);
}

}  // namespace

void ReleaseEvent::operator()(PDU_EVENT_ITEM* event) const noexcept {
    switch (event->ItemType) {
        case PDU_IT_RESULT:
            FreeResult(event);
            break;
        case PDU_IT_STATUS:
            FreeStatus(event);
            break;
        default:
            FreeMem(event);
            break;
    }
}

EventPtr MakeStatusItem(std::uint32_t hCop, void* pCoPTag, std::uint32_t status) {
    auto item = AllocateRecord<PDU_EVENT_ITEM>();
    auto data = AllocateRecord<PDU_STATUS_DATA>();  // released separately
    if (item == nullptr || data == nullptr) return nullptr;
    *data = status;
    *item = {PDU_IT_STATUS, hCop, pCoPTag, TimestampUs(), data.release()};
    return EventPtr(item.release());
}

EventPtr MakeErrorItem(std::uint32_t hCop, void* pCoPTag, std::uint32_t error_code) {
    auto block = MakeEventBlock<PDU_ERROR_DATA>(PDU_IT_ERROR, hCop, pCoPTag);
    if (block != nullptr) block->data.ErrorCodeId = error_code;
    return ToEvent(block);
}

EventPtr MakeInfoItem(std::uint32_t info_code) {
    auto block = MakeEventBlock<PDU_INFO_DATA>(PDU_IT_INFO, PDU_HANDLE_UNDEF, nullptr);
    if (block != nullptr) block->data.InfoCode = info_code;
    return ToEvent(block);
}

EventPtr MakeResultItem(const ResultContent& content) {
    auto block = MakeEventBlock<PDU_RESULT_DATA>(PDU_IT_RESULT, content.hCop, content.pCoPTag);
    auto rx_flag = MakeFlagBytes();
    auto timestamp_flags = content.tx_done_timestamp ? MakeFlagBytes() : nullptr;
    if (block == nullptr || rx_flag == nullptr) return nullptr;
    if (content.tx_done_timestamp && timestamp_flags == nullptr) return nullptr;

    PDU_RESULT_DATA& result = block->data;
    rx_flag.get()[2] = content.rx_flag_byte2;
    result.RxFlag = {kFlagBytes, rx_flag.release()};
    if (content.tx_done_timestamp) {
        result.TimestampFlags = {kFlagBytes, timestamp_flags.release()};
        result.TxMsgDoneTimestamp = block->item.Timestamp;
    }
    result.UniqueRespIdentifier = content.unique_resp_identifier;
    result.AcceptanceId = content.acceptance_id;
    result.NumDataBytes = content.data_length;
    result.pDataBytes = content.data;
    return ToEvent(block);
}

void FreePduItem(PDU_ITEM* item) {
    if (item == nullptr) return;
    switch (item->ItemType) {
        case PDU_IT_RESULT:
            FreeResult(As<PDU_EVENT_ITEM>(item));
            break;
        case PDU_IT_STATUS:
            Log(kLogTrace, "[%s] PDU_IT_STATUS", __func__);
            FreeStatus(As<PDU_EVENT_ITEM>(item));
            break;
        case PDU_IT_ERROR:
            FreeMem(item);
            break;
        case PDU_IT_RSC_ID:
            FreeResourceIds(As<PDU_RSC_ID_ITEM>(item));
            break;
        case PDU_IT_MODULE_ID:
            FreeModuleIds(As<PDU_MODULE_ITEM>(item));
            break;
        case PDU_IT_UNIQUE_RESP_ID_TABLE:
            FreeUniqueRespIdTable(As<PDU_UNIQUE_RESP_ID_TABLE_ITEM>(item));
            break;
        default:
            // Deliberate: information items and the output of PDUIoCtl are never released, and a
            // ComParam item is a row of the library's own table.
            break;
    }
}

}  // namespace tarvik
