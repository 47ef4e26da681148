#pragma once

#include <cstdint>

// Fixed values of PDUGetVersion, packed most significant byte first: major, minor, revision, 0.
namespace tarvik {

inline constexpr std::uint32_t kStandardVersion = 0x02020200;
inline constexpr std::uint32_t kSoftwareVersion = 0x00010000;

}  // namespace tarvik
