#pragma once

#include <cstdint>

namespace tarvik {

// An open port. One thread receives on it and one transmits, each through its own transfer.
struct PortHandle;
struct PortTransfer;

// Opens an existing port for this process alone. Null: refused; OsLastError() has the reason.
PortHandle* OpenPort(const char* path);
// Ends every wait on the port, now and later. Any thread may call it.
void WakePort(PortHandle* port);
// Close its transfers first.
void ClosePort(PortHandle* port);

enum class TransferKind : std::uint8_t { kReceive, kTransmit };
// Null: the system refused; OsLastError() has the reason.
PortTransfer* CreateTransfer(PortHandle* port, TransferKind kind);
void* TransferEvent(const PortTransfer* transfer);  // for log lines
void CloseTransfer(PortTransfer* transfer);         // ends pending operations

// Sleeps until bytes have arrived, the port is woken or fails, or the time has run out; QueuedBytes
// shows which. False: the wait could not begin; OsLastError() has the reason.
bool WaitForData(PortTransfer* transfer, std::int32_t timeout_ms);
// The number of bytes that can be read at once. False: the port is gone; OsLastError() has the
// reason.
bool QueuedBytes(PortTransfer* transfer, std::uint32_t* count);

enum class TransferStep : std::uint8_t {
    kDone,     // code: 0
    kStart,    // could not begin; code: the system's error
    kTimeout,  // code: 0
    kWait,     // the wait ended otherwise; code: what the wait returned
    kResult,   // failed after its start; code: the system's error
};
struct TransferOutcome {
    TransferStep step;  // the step it reached
    std::uint32_t bytes;
    std::uint32_t code;
};
// Reads bytes that are queued already: at least one, at most `size`.
TransferOutcome ReadPort(PortTransfer* transfer, void* data, std::uint32_t size);
// Nothing of it is pending on return, whatever the outcome.
TransferOutcome WritePort(PortTransfer* transfer, const void* data, std::uint32_t size,
                          std::int32_t timeout_ms);

}  // namespace tarvik
