// Positive and negative UDS (ISO 14229-1) answers.

#ifndef TOOLS_DPDU_UDS_ANSWERS_H
#define TOOLS_DPDU_UDS_ANSWERS_H

#include <cstdint>
#include <optional>
#include <string>

#include "text/hex.h"

namespace dpdu {

// The name of a negative response code, as "requestOutOfRange"; "unknown code" for one without.
const char* NegativeResponseName(std::uint8_t code);

struct NegativeResponse {
    std::uint8_t service;
    std::uint8_t code;
};

// Nothing when the answer is not a negative response.
std::optional<NegativeResponse> ParseNegativeResponse(const Bytes& answer);

// "negative response requestOutOfRange (0x31) to service 0x22"
std::string NegativeResponseText(const NegativeResponse& response);

// True when the answer is positive and repeats the request's service and its first `echoed` bytes
// behind it (the data identifier, the sub-function).
bool IsPositiveAnswerTo(const Bytes& request, const Bytes& answer, std::size_t echoed);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_ANSWERS_H
