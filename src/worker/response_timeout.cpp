#include "worker/response_timeout.h"

#include "comparam/comparams.h"

namespace tarvik {

std::uint32_t ResponseTimeoutMs() {
    // Deliberate: CP_P2Max is in microseconds, and the divisor is 2000, not 1000.
    return ReadComParam(kCpP2Max) / 2000;
}

}  // namespace tarvik
