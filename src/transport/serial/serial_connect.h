#pragma once

#include <cstdint>

namespace tarvik {

// Looks for new ports every 100 ms while the transport runs; at the end stops every port.
void SerialConnectThreadFunc(void* argument);

// One scan: takes note of ports that came and went, and connects the new ones. True: at least one
// was connected.
bool SerialConnect();

// Opens the port, starts its threads and synchronises with the dongle. Under the session lock.
bool ConnectSerialPort(std::int32_t number, const char* path);

}  // namespace tarvik
