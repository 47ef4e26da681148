#include "worker/response_match.h"

#include <algorithm>
#include <cstddef>

namespace tarvik {

bool MatchesExpectedResponse(const PDU_EXP_RESP_DATA& expected, ByteView response) {
    if (expected.NumMaskPatternBytes == 0) return expected.ResponseType == 0;
    // Deliberate: the response byte masks both sides, not the mask the pattern, and lengths are
    // not compared. A byte that the response does not have masks both sides to zero.
    const std::size_t compared = std::min<std::size_t>(expected.NumMaskPatternBytes, response.size);
    for (std::size_t i = 0; i < compared; ++i) {
        const unsigned byte = response.data[i];
        if ((expected.pMaskData[i] & byte) != (expected.pPatternData[i] & byte)) return false;
    }
    return true;
}

const PDU_EXP_RESP_DATA* FindMatch(const PDU_COP_CTRL_DATA* control, ByteView response,
                                   const MatchLog& log) {
    if (control == nullptr) return nullptr;
    for (std::uint32_t i = 0; i < control->NumPossibleExpectedResponses; ++i) {
        log.checking(i);
        const PDU_EXP_RESP_DATA& expected = control->pExpectedResponseArray[i];
        if (MatchesExpectedResponse(expected, response)) return &expected;
        if (log.missed != nullptr) log.missed();
    }
    return nullptr;
}

}  // namespace tarvik
