#pragma once

#include <cstdint>

namespace tarvik {

// The name of a CAN format ComParam's value, for log lines.
const char* CanFormatName(std::uint32_t format);

}  // namespace tarvik
