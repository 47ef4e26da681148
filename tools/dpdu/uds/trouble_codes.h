// Diagnostic trouble codes in UDS answers.

#ifndef TOOLS_DPDU_UDS_TROUBLE_CODES_H
#define TOOLS_DPDU_UDS_TROUBLE_CODES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "text/hex.h"

namespace dpdu {

// An ISO 15031-6 trouble code with its failure type: "P0301-00".
std::string TroubleCodeText(std::uint32_t code);

// Names of the bits set in a trouble code's status byte, lowest bit first.
std::vector<std::string> TroubleStatusFlags(std::uint8_t status);

struct TroubleCode {
    std::uint32_t code;  // 24 bits: two bytes trouble code, one byte failure type
    std::uint8_t status;
};

struct TroubleCodeReport {
    std::uint8_t availability_mask;  // the status bits that the control unit supports
    std::vector<TroubleCode> codes;
};

// The request "report trouble codes by status mask" (0x19 0x02).
Bytes TroubleCodeRequest(std::uint8_t status_mask);

// Parses the answer to that request; nullopt for any other
// answer, or if it ends within a trouble code.
std::optional<TroubleCodeReport> ParseTroubleCodeReport(const Bytes& answer);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_TROUBLE_CODES_H
