#pragma once

#include <cstdint>

#include "api/dpdu_types.h"
#include "link/wire.h"

namespace tarvik {

// Whether a response fits one expected response.
bool MatchesExpectedResponse(const PDU_EXP_RESP_DATA& expected, ByteView response);

}  // namespace tarvik
