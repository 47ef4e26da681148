#include "objects/com_primitive.h"

#include <cstring>

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

ComPrimitive::~ComPrimitive() {
    FreeControlData(pCopCtrlData);
    FreeMem(pCoPData);
    if (receive_thread != nullptr) OsThreadClose(receive_thread);
}

}  // namespace tarvik
