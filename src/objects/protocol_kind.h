#pragma once

#include <cstdint>

namespace tarvik {

enum class ProtocolKind : std::uint32_t { kUnknown = 0, kCan = 1, kDoip = 2 };

// Bus type, protocol and resource ids, as PDUGetObjectId hands them out.
inline constexpr std::uint32_t kBusTypeCan = 4000;
inline constexpr std::uint32_t kBusTypeDoip = 4001;
inline constexpr std::uint32_t kProtocolCan = 3000;  // both UDS and raw frames
inline constexpr std::uint32_t kProtocolDoip = 3001;
inline constexpr std::uint32_t kResourceCan = 2001;
inline constexpr std::uint32_t kResourceDoip = 2002;

// The order of the tests is the rule: DoIP wins where the two ids disagree.
ProtocolKind DecideProtocol(std::uint32_t bus_type, std::uint32_t protocol);

}  // namespace tarvik
