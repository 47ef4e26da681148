#pragma once

#include <cstdint>

namespace tarvik {

// The name of the user that the process runs for, in UTF-8 on Windows; false: unknown, or it does
// not fit.
bool OsUserName(char* name, std::uint32_t capacity);

}  // namespace tarvik
