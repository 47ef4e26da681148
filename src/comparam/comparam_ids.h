#pragma once

#include <cstdint>

namespace tarvik {

inline constexpr std::uint32_t kComParamCount = 228;  // ids 1 to 228

inline constexpr bool IsComParamId(std::uint32_t id) { return id >= 1 && id <= kComParamCount; }

// The ComParams that the library itself reads. Looking them up by name on every request would cost
// more than the rest of its preparation. comparam_table.cpp checks each against its name.
inline constexpr std::uint32_t kCpP2Max = 12;
inline constexpr std::uint32_t kCpRC78Handling = 25;
inline constexpr std::uint32_t kCpSessionTimingOverride = 28;
inline constexpr std::uint32_t kCpTesterPresentMessage = 36;
inline constexpr std::uint32_t kCpTesterPresentTime = 39;
inline constexpr std::uint32_t kCpAccessTimingOverride = 44;
inline constexpr std::uint32_t kCpCanFuncReqFormat = 56;
inline constexpr std::uint32_t kCpCanFuncReqId = 57;
inline constexpr std::uint32_t kCpCanPhysReqFormat = 60;
inline constexpr std::uint32_t kCpCanPhysReqId = 61;
inline constexpr std::uint32_t kCpCanRespUSDTFormat = 63;
inline constexpr std::uint32_t kCpCanRespUSDTId = 64;
inline constexpr std::uint32_t kCpRequestAddrMode = 105;
inline constexpr std::uint32_t kCpAccessTimingEcu = 226;
inline constexpr std::uint32_t kCpSessionTimingEcu = 227;

}  // namespace tarvik
