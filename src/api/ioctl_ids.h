#pragma once

#include <cstdint>

namespace tarvik {

// The commands that PDUIoCtl accepts, and the range it looks at.
inline constexpr std::uint32_t kIoCtlReset = 5000;
inline constexpr std::uint32_t kIoCtlReadVbatt = 5005;
inline constexpr std::uint32_t kIoCtlSetBufferSize = 5009;
inline constexpr std::uint32_t kIoCtlStartMsgFilter = 5010;
inline constexpr std::uint32_t kIoCtlClearMsgFilter = 5011;
inline constexpr std::uint32_t kIoCtlReadIgnitionSenseState = 5016;
inline constexpr std::uint32_t kIoCtlVehicleIdRequest = 5017;
inline constexpr std::uint32_t kIoCtlSetEthSwitchState = 5018;
inline constexpr std::uint32_t kIoCtlGetEntityStatus = 5019;
inline constexpr std::uint32_t kIoCtlGetDiagnosticPowerMode = 5020;

}  // namespace tarvik
