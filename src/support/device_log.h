#pragma once

#include <cstddef>

namespace tarvik {

// Prints a dongle's log text on the console, line by line. A last line without line feed is kept
// for the next call; a line of more than 64 KiB is broken. `text` ends at its first NUL, if it has
// one. Called by serial receive threads; thread-safe.
void ProcessDeviceLogPacket(const char* text, std::size_t length);

}  // namespace tarvik
