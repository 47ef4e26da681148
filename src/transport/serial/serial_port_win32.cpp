#include "transport/serial/serial_port.h"

#include <windows.h>

#include "support/memory.h"

namespace tarvik {

struct PortHandle {
    HANDLE file = INVALID_HANDLE_VALUE;
    HANDLE wake = nullptr;  // manual reset; stays set
};

struct PortTransfer {
    PortHandle* port = nullptr;
    OVERLAPPED transfer{};
    OVERLAPPED comm_wait{};     // the receiver's
    DWORD comm_event = 0;       // written by the system when a comm event ends the wait
    bool comm_pending = false;  // such a wait is pending
};

namespace {

constexpr DWORD kCommWaitEndMs = 500;

void CloseIfOpen(HANDLE handle) {
    if (handle != nullptr && handle != INVALID_HANDLE_VALUE) ::CloseHandle(handle);
}

void KeepLastErrorAndClose(PortHandle* port) {
    const DWORD error = ::GetLastError();
    ClosePort(port);
    ::SetLastError(error);
}

// A port that was removed may refuse a new mask, and not every system can cancel a wait for a comm
// event: one of the two ends it. False: neither did, and the system may still write into the
// record.
bool EndCommWait(PortTransfer* transfer) {
    if (!transfer->comm_pending) return true;
    ::SetCommMask(transfer->port->file, 0);
    ::CancelIoEx(transfer->port->file, &transfer->comm_wait);
    if (::WaitForSingleObject(transfer->comm_wait.hEvent, kCommWaitEndMs) != WAIT_OBJECT_0) {
        return false;
    }
    transfer->comm_pending = false;
    return true;
}

// Waits for the transfer that was started. `wait_ms` counts from here.
TransferOutcome Finish(PortTransfer* transfer, bool started, DWORD wait_ms) {
    if (!started && ::GetLastError() != ERROR_IO_PENDING) {
        return {TransferStep::kStart, 0, ::GetLastError()};
    }
    const HANDLE either[] = {transfer->transfer.hEvent, transfer->port->wake};
    const DWORD wait = ::WaitForMultipleObjects(2, either, FALSE, wait_ms);
    const HANDLE file = transfer->port->file;
    if (wait != WAIT_OBJECT_0) ::CancelIoEx(file, &transfer->transfer);

    DWORD bytes = 0;
    const bool complete = ::GetOverlappedResult(file, &transfer->transfer, &bytes, TRUE) != 0;
    const DWORD error = complete ? 0 : ::GetLastError();
    if (wait == WAIT_TIMEOUT) return {TransferStep::kTimeout, bytes, 0};
    if (wait != WAIT_OBJECT_0) return {TransferStep::kWait, bytes, wait};
    if (!complete) return {TransferStep::kResult, bytes, error};
    return {TransferStep::kDone, bytes, 0};
}

}  // namespace

PortHandle* OpenPort(const char* path) {
    auto* port = NewTracked<PortHandle>();
    if (port == nullptr) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    port->wake = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    port->file = ::CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED, nullptr);
    // The event mask is not a line setting: those of the driver stay.
    if (port->wake == nullptr || port->file == INVALID_HANDLE_VALUE ||
        !::SetCommMask(port->file, EV_RXCHAR)) {
        KeepLastErrorAndClose(port);
        return nullptr;
    }
    return port;
}

void WakePort(PortHandle* port) { ::SetEvent(port->wake); }

void ClosePort(PortHandle* port) {
    CloseIfOpen(port->file);
    CloseIfOpen(port->wake);
    DeleteTracked(port);
}

PortTransfer* CreateTransfer(PortHandle* port, TransferKind kind) {
    auto* transfer = NewTracked<PortTransfer>();
    if (transfer == nullptr) {
        ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    transfer->port = port;
    transfer->transfer.hEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    if (kind == TransferKind::kReceive) {
        transfer->comm_wait.hEvent = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    }
    if (transfer->transfer.hEvent == nullptr ||
        (kind == TransferKind::kReceive && transfer->comm_wait.hEvent == nullptr)) {
        const DWORD error = ::GetLastError();
        CloseTransfer(transfer);
        ::SetLastError(error);
        return nullptr;
    }
    return transfer;
}

void* TransferEvent(const PortTransfer* transfer) { return transfer->transfer.hEvent; }

void CloseTransfer(PortTransfer* transfer) {
    const bool ended = EndCommWait(transfer);
    CloseIfOpen(transfer->transfer.hEvent);
    if (!ended) return;  // the wait's record and event stay for the system
    CloseIfOpen(transfer->comm_wait.hEvent);
    DeleteTracked(transfer);
}

bool WaitForData(PortTransfer* transfer, std::int32_t timeout_ms) {
    if (!transfer->comm_pending) {
        ::ResetEvent(transfer->comm_wait.hEvent);
        if (::WaitCommEvent(transfer->port->file, &transfer->comm_event, &transfer->comm_wait)) {
            return true;
        }
        if (::GetLastError() != ERROR_IO_PENDING) return false;
        transfer->comm_pending = true;
    }
    // Bytes that came before the wait began raise no event.
    std::uint32_t queued = 0;
    if (!QueuedBytes(transfer, &queued) || queued > 0) return true;

    const HANDLE either[] = {transfer->comm_wait.hEvent, transfer->port->wake};
    if (::WaitForMultipleObjects(2, either, FALSE, static_cast<DWORD>(timeout_ms)) ==
        WAIT_OBJECT_0) {
        transfer->comm_pending = false;  // however it ended: QueuedBytes shows it
    }
    return true;
}

bool QueuedBytes(PortTransfer* transfer, std::uint32_t* count) {
    DWORD errors = 0;
    COMSTAT status{};
    if (!::ClearCommError(transfer->port->file, &errors, &status)) return false;
    *count = status.cbInQue;
    return true;
}

TransferOutcome ReadPort(PortTransfer* transfer, void* data, std::uint32_t size) {
    ::ResetEvent(transfer->transfer.hEvent);
    const bool started =
        ::ReadFile(transfer->port->file, data, size, nullptr, &transfer->transfer) != 0;
    return Finish(transfer, started, INFINITE);
}

TransferOutcome WritePort(PortTransfer* transfer, const void* data, std::uint32_t size,
                          std::int32_t timeout_ms) {
    ::ResetEvent(transfer->transfer.hEvent);
    const bool started =
        ::WriteFile(transfer->port->file, data, size, nullptr, &transfer->transfer) != 0;
    return Finish(transfer, started, static_cast<DWORD>(timeout_ms));
}

}  // namespace tarvik
