#include "api/com_primitives.h"

#include <cstring>

#include "api/events.h"
#include "api/items.h"
#include "api/lifecycle.h"
#include "platform/tick.h"
#include "support/cop_trace.h"
#include "support/log.h"
#include "support/memory.h"

namespace tarvik {
namespace {

// Null for null, for size 0, or when memory is out.
template <typename T>
T* CopyArray(const T* source, std::uint32_t count) {
    if (source == nullptr || count == 0) return nullptr;
    auto* copy = static_cast<T*>(AllocateArray(count, sizeof(T)));
    if (copy != nullptr) std::memcpy(copy, source, count * sizeof(T));
    return copy;
}

void CopyExpectedResponse(const PDU_EXP_RESP_DATA& source, PDU_EXP_RESP_DATA* copy) {
    *copy = source;
    copy->pMaskData = CopyArray(source.pMaskData, source.NumMaskPatternBytes);
    copy->pPatternData = CopyArray(source.pPatternData, source.NumMaskPatternBytes);
    // A mask without a pattern, or the other way round, has nothing to compare.
    if (copy->pMaskData == nullptr || copy->pPatternData == nullptr) copy->NumMaskPatternBytes = 0;
    copy->pUniqueRespIds = CopyArray(source.pUniqueRespIds, source.NumUniqueRespIds);
    if (copy->pUniqueRespIds == nullptr) copy->NumUniqueRespIds = 0;
}

TraceCop TraceIds(const ComPrimitive& cop) { return {cop.hMod, cop.hCLL, cop.hCoP}; }

}  // namespace

PDU_COP_CTRL_DATA* CopyControlData(const PDU_COP_CTRL_DATA* source) {
    if (source == nullptr) return nullptr;
    auto copy = AllocateRecord<PDU_COP_CTRL_DATA>();
    if (copy == nullptr) return nullptr;
    // The TxFlag bytes stay the caller's: the library reads them while it starts the ComPrimitive.
    *copy = *source;
    const std::uint32_t count =
        source->pExpectedResponseArray == nullptr ? 0 : source->NumPossibleExpectedResponses;
    copy->pExpectedResponseArray =
        static_cast<PDU_EXP_RESP_DATA*>(AllocateArray(count, sizeof(PDU_EXP_RESP_DATA)));
    copy->NumPossibleExpectedResponses = copy->pExpectedResponseArray == nullptr ? 0 : count;
    for (std::uint32_t i = 0; i < copy->NumPossibleExpectedResponses; ++i) {
        CopyExpectedResponse(source->pExpectedResponseArray[i], &copy->pExpectedResponseArray[i]);
    }
    return copy.release();
}

void FreeControlData(PDU_COP_CTRL_DATA* data) {
    if (data == nullptr) return;
    for (std::uint32_t i = 0; i < data->NumPossibleExpectedResponses; ++i) {
        FreeMem(data->pExpectedResponseArray[i].pMaskData);
        FreeMem(data->pExpectedResponseArray[i].pPatternData);
        FreeMem(data->pExpectedResponseArray[i].pUniqueRespIds);
    }
    FreeMem(data->pExpectedResponseArray);
    FreeMem(data);
}

void FreeComPrimitive(ComPrimitive* cop) {
    if (cop == nullptr || cop->references.fetch_sub(1) != 1) return;
    FreeControlData(cop->pCopCtrlData);
    FreeMem(cop->pCoPData);
    if (cop->receive_thread != nullptr) OsThreadClose(cop->receive_thread);
    DeleteTracked(cop);
}

void UpdateCopState(LinkRecord* link, ComPrimitive* cop, std::uint32_t new_state) {
    const std::uint32_t old_state = cop->state.load();
    if (new_state != old_state) {
        const std::uint64_t now = TickMs();
        cop->duration = cop->lastChange == 0 ? 0 : now - cop->lastChange;
        cop->lastChange = now;
        Log(kLogTrace, "[%s] CoP #%u Status: %04X, Duration: %llu ms", __func__, cop->hCoP,
            new_state, static_cast<unsigned long long>(cop->duration));
        TraceCopState(TraceIds(*cop), old_state, new_state, cop->duration);
    }
    cop->state.store(new_state);
    AppendLinkEvent(link, MakeStatusItem(cop->hCoP, cop->pCoPTag, new_state));
    const std::uint64_t begun =
        TraceNotifyBegin(TraceIds(*cop), PDU_IT_STATUS, PDU_EVT_DATA_AVAILABLE);
    CallComLogicalLinkEventCBR(link);
    TraceNotifyEnd(TraceIds(*cop), PDU_IT_STATUS, PDU_EVT_DATA_AVAILABLE, begun);
}

void cop_error(LinkRecord* link, ComPrimitive* cop, std::uint32_t code) {
    PDU_EVENT_ITEM* item = MakeErrorItem(cop->hCoP, cop->pCoPTag, code);
    TraceCopError(TraceIds(*cop), code);
    const bool valid = link->running.load();
    AppendLinkEvent(link, item);
    if (valid) {
        CallComLogicalLinkEventCBR(link);
    } else {
        CallSystemEventCBR(link->hMod, link->hCLL, link->CllTag, ApiTag());
    }
}

}  // namespace tarvik
