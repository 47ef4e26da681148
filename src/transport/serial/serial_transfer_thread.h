#pragma once

#include "transport/serial/serial_state.h"

namespace tarvik {

// What differs between a port's receive and transmit thread.
struct TransferThread {
    const char* name;  // in log lines
    TransferKind kind;
    const char* direction;  // in log lines
    const char* record;     // in log lines: what holds the transfer's event
    void (*run)(SerialPort* port, PortTransfer* transfer);  // until the port stops or fails
};

// Creates a transfer, calls `run` with it and stops the port afterwards.
void RunTransferThread(SerialPort* port, const TransferThread& thread);

}  // namespace tarvik
