// The names that ISO 14229-1 gives to services, their sub-functions and common identifiers.

#ifndef TOOLS_DPDU_UDS_SERVICES_H
#define TOOLS_DPDU_UDS_SERVICES_H

#include <cstdint>
#include <string>

namespace dpdu {

inline constexpr std::uint8_t kSuppressPositive = 0x80;  // bit beside the sub-function

// "ReadDataByIdentifier", or "service 0xBA" if the standard has none.
std::string ServiceName(std::uint8_t service);

// True if the byte after the service is a sub-function.
bool HasSubFunction(std::uint8_t service);

// "extendedDiagnosticSession" for (0x10, 0x03), or "sub-function 0x42". Ignores the bit that
// suppresses the positive response.
std::string SubFunctionName(std::uint8_t service, std::uint8_t sub_function);

// "VINDataIdentifier" for 0xF190; empty if the standard gives none.
std::string DataIdentifierName(std::uint16_t identifier);

// "eraseMemory" for 0xFF00; empty if the standard gives none.
std::string RoutineName(std::uint16_t identifier);

}  // namespace dpdu

#endif  // TOOLS_DPDU_UDS_SERVICES_H
