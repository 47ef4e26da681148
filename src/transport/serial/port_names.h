#pragma once

#include <cstdint>
#include <optional>

namespace tarvik {

inline constexpr std::int32_t kSerialPortCount = 255;  // COM0 to COM254

// The number of a port named "COM0" to "COM254"; every other name is left alone.
std::optional<std::int32_t> NumberOfComPort(const char* name);

// The number that a Linux tty goes by: "ttyACM7" is 7, "ttyUSB7" is 135; every other name, and
// every number above 254, is left alone.
std::optional<std::int32_t> NumberOfTty(const char* name);

}  // namespace tarvik
