#include "transport/serial/serial_transfer_thread.h"

#include "support/log.h"
#include "transport/serial/serial_port_threads.h"

namespace tarvik {

void RunTransferThread(SerialPort* port, const TransferThread& thread) {
    Log(kLogTrace, "[%s] Starting.", thread.name);
    PortTransfer* transfer = CreateTransfer(port->handle, thread.kind);
    if (transfer == nullptr) {
        Log(kLogTrace, "[%s] Failed to create overlapped event, error: %i", thread.name,
            OsLastError());
        StopPort(port);
        return;
    }
    Log(kLogTrace, "[%s] Created Event handle 0x%p for serial %s overlap (port %d)", thread.name,
        TransferEvent(transfer), thread.direction, port->number);

    thread.run(port, transfer);
    StopPort(port);

    Log(kLogTrace, "[%s] Closing Event handle 0x%p (%s.hEvent) for port %d", thread.name,
        TransferEvent(transfer), thread.record, port->number);
    CloseTransfer(transfer);
    Log(kLogTrace, "[%s] Exiting.", thread.name);
}

}  // namespace tarvik
