#pragma once

#include <cstdint>

#include "dpdu_types.h"
#include "link/wire.h"

namespace tarvik {

// True if the response fits this expected response.
bool MatchesExpectedResponse(const PDU_EXP_RESP_DATA& expected, ByteView response);

// Log lines around the checks of FindMatch.
struct MatchLog {
    void (*checking)(std::uint32_t index);
    void (*missed)();  // null: nothing is logged
};

// The first expected response that fits; null: none does, or there is no control data.
const PDU_EXP_RESP_DATA* FindMatch(const PDU_COP_CTRL_DATA* control, ByteView response,
                                   const MatchLog& log);

}  // namespace tarvik
