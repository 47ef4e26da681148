#pragma once

#include <cstdint>
#include <optional>

namespace tarvik {

inline constexpr std::int32_t kSerialPortCount = 255;  // COM0 to COM254

// The number of "COM0" to "COM254"; none for every other name.
std::optional<std::int32_t> NumberOfComPort(const char* name);

// The port number of a Linux tty: 7 for "ttyACM7", 135 for "ttyUSB7"; none for every other name and
// for numbers above 254.
std::optional<std::int32_t> NumberOfTty(const char* name);

}  // namespace tarvik
