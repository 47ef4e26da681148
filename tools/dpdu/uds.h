// What the bytes of UDS (ISO 14229-1) answers mean.

#ifndef TOOLS_DPDU_UDS_H
#define TOOLS_DPDU_UDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hex.h"

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

// A trouble code of ISO 15031-6 with its failure type: "P0301-00".
std::string TroubleCodeText(std::uint32_t code);

// The names of the bits that are set in a trouble code's status byte, lowest bit first.
std::vector<std::string> TroubleStatusFlags(std::uint8_t status);

struct TroubleCode {
    std::uint32_t code;  // 24 bits: two bytes of trouble code, one of failure type
    std::uint8_t status;
};

struct TroubleCodeReport {
    std::uint8_t availability_mask;  // the status bits that the control unit supports
    std::vector<TroubleCode> codes;
};

// The answer to "report trouble codes by status mask" (0x19 0x02); nothing when it is something
// else or ends within a trouble code.
std::optional<TroubleCodeReport> ParseTroubleCodeReport(const Bytes& answer);

// The text of a vehicle identification number: everything printable as it is, the rest as dots,
// without padding at either end.
std::string VinText(const Bytes& bytes);

// 17 characters out of the digits and the letters but I, O and Q.
bool IsWellFormedVin(const std::string& vin);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_H
