#pragma once

#include <cstdint>

#include "transport/serial/serial_state.h"

namespace tarvik {

// The entries of a port's threads; the argument is its SerialPort.
void SerialRxThreadFunc(void* argument);
void SerialTxThreadFunc(void* argument);
void SerialThreadFunc(void* argument);  // the monitor: takes the port down when it stops

// Asks the port's threads to end and wakes them. Any thread may call it, at any time.
void StopPort(SerialPort* port);

// Marks the dongle as unavailable and releases its queues. The port's threads may still run.
void ReleaseQueues(SerialPort* port);
// Only after the receive and the transmit thread have ended.
void ClosePortHandle(SerialPort* port);
// Releases a packet or fragments received in part. Only after the receive thread has ended.
void ForgetReceived(SerialPort* port);

}  // namespace tarvik
