#pragma once

#include <cstddef>

namespace tarvik {

// Prints a dongle's log text on the console, line by line; a last line without line feed waits
// for the next call. `text` may hold NUL bytes: only what stands before the first counts.
// Serial receive threads only; calls are serialised inside.
void ProcessDeviceLogPacket(const char* text, std::size_t length);

}  // namespace tarvik
