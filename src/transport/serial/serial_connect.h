#pragma once

namespace tarvik {

// Looks for new ports every 100 ms while the transport runs and connects them; at the end stops
// every port. The argument is the generation of the start: a thread of an earlier one ends at its
// next look, and leaves the ports to its successor.
void SerialConnectThreadFunc(void* argument);

// Stops every port whose threads run, and returns at once. Used when the connect thread does not
// end.
void AbandonSerialPorts();

}  // namespace tarvik
