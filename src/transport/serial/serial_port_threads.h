#pragma once

#include <cstdint>

#include "transport/serial/serial_state.h"

namespace tarvik {

// The entries of a port's threads; the argument is its SerialPort.
void SerialRxThreadFunc(void* argument);
void SerialTxThreadFunc(void* argument);
void SerialThreadFunc(void* argument);  // the monitor: tears the port down when it stops

// Asks the port's threads to end and wakes them. Any thread may call it, at any time.
void StopPort(SerialPort* port);

// Takes the dongle away from those who use its queues, and releases the queues. Whether the port's
// threads still run does not matter.
void ReleaseQueues(SerialPort* port);
// The receive and the transmit thread have ended.
void ClosePortHandle(SerialPort* port);
// Releases what has been received in part: half a packet, or some fragments of one. The receive
// thread has ended.
void ForgetReceived(SerialPort* port);

}  // namespace tarvik
