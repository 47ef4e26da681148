// Diagnostic trouble codes as UDS answers carry them.

#ifndef TOOLS_DPDU_UDS_TROUBLE_CODES_H
#define TOOLS_DPDU_UDS_TROUBLE_CODES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "text/hex.h"

namespace dpdu {

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

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_TROUBLE_CODES_H
