// Positive and negative UDS (ISO 14229-1) answers.

#ifndef TOOLS_DPDU_UDS_ANSWERS_H
#define TOOLS_DPDU_UDS_ANSWERS_H

#include <cstdint>
#include <optional>
#include <string>

#include "text/hex.h"

namespace dpdu {

inline constexpr std::uint8_t kNegativeResponseService =
    0x7F;                                              // service byte of every negative response
inline constexpr std::uint8_t kPositiveOffset = 0x40;  // from a request's service to its answer's

// The name of a negative response code, such as "requestOutOfRange", or "unknown code".
const char* NegativeResponseName(std::uint8_t code);

struct NegativeResponse {
    std::uint8_t service;
    std::uint8_t code;
};

// nullopt if the answer is not a negative response.
std::optional<NegativeResponse> ParseNegativeResponse(const Bytes& answer);

// "negative response requestOutOfRange (0x31) to service 0x22"
std::string NegativeResponseText(const NegativeResponse& response);

// True if the answer is positive and repeats the `echoed` bytes after the request's service (data
// identifier or sub-function).
bool IsPositiveAnswerTo(const Bytes& request, const Bytes& answer, std::size_t echoed);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_ANSWERS_H
