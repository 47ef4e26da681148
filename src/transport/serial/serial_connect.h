#pragma once

namespace tarvik {

// Looks for new ports every 100 ms while the transport runs and connects them; at the end stops
// every port. The argument is not used.
void SerialConnectThreadFunc(void* argument);

}  // namespace tarvik
