// The pair of CAN identifiers of a control unit: for requests and for responses.

#ifndef TOOLS_DPDU_UDS_ECU_ADDRESS_H
#define TOOLS_DPDU_UDS_ECU_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>

namespace dpdu {

inline constexpr std::uint32_t kLargest11BitId = 0x7FF;
inline constexpr std::uint32_t kLargest29BitId = 0x1FFFFFFF;

struct EcuAddress {
    std::uint32_t request_id = 0x7E0;
    std::uint32_t response_id = 0x7E8;
};

// Parses "7E0:7E8"; each identifier is hexadecimal, at most 1FFFFFFF.
std::optional<EcuAddress> ParseEcuAddress(const std::string& text);

// "7E0:7E8"
std::string EcuAddressText(const EcuAddress& ecu);

// "7E8", or eight digits for a 29-bit identifier.
std::string CanIdText(std::uint32_t id);

std::optional<std::uint32_t> ParseCanId(const std::string& text);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_ECU_ADDRESS_H
