#include <cstdint>

#include "link/packet.h"
#include "link/packet_counters.h"
#include "link/packet_queue.h"
#include "support/log.h"
#include "transport/serial/serial_limits.h"
#include "transport/serial/serial_port_threads.h"
#include "transport/serial/serial_transfer_thread.h"

namespace tarvik {

namespace {

constexpr char kTxName[] = "SerialTxThreadFunc";
constexpr char kWriteName[] = "WritePacketToSerial";

bool IsSent(const TransferOutcome& outcome, const Packet& packet) {
    return outcome.step == TransferStep::kDone && outcome.bytes == packet.length;
}

void LogWriteFault(const TransferOutcome& outcome, const Packet& packet) {
    const int error = static_cast<int>(outcome.code);
    switch (outcome.step) {
        case TransferStep::kStart:
            Log(kLogTrace, "[%s] Failed to write to serial port, error: %i", kWriteName, error);
            break;
        case TransferStep::kTimeout:
            Log(kLogTrace, "[%s] Wait timeout occurred", kWriteName);
            break;
        case TransferStep::kWait:
            Log(kLogTrace, "[%s] Wait error: 0x%08X", kWriteName, outcome.code);
            break;
        case TransferStep::kResult:
            Log(kLogTrace, "[%s] Failed to get overlapped result, error: %i", kWriteName, error);
            break;
        case TransferStep::kDone:
            Log(kLogTrace, "[%s] Written: %i/%i", kWriteName, static_cast<int>(outcome.bytes),
                static_cast<int>(packet.length));
            break;
    }
}

void Transmit(SerialPort* port, PortTransfer* transfer) {
    while (port->running) {
        PacketPtr packet = TakePacket(&port->queues.tx, GetSerialLimits().transmit_poll_ms);
        if (!packet) continue;
        const TransferOutcome outcome =
            WritePort(transfer, packet->Bytes(), packet->length, GetSerialLimits().write_ms);
        if (!IsSent(outcome, *packet)) {
            const bool stopped = outcome.step == TransferStep::kWait && !port->running;
            if (stopped) return;  // the stop woke the port: the write did not fail
            LogWriteFault(outcome, *packet);
            Log(kLogTrace, "[%s] Failed to send. exiting.", kTxName);
            AppendPacket(&port->queues.tx, packet, kNoTag);
            return;
        }
        Log(kLogTrace, "[%s] Wrote packet with %i byte", kWriteName,
            static_cast<int>(packet->length));
        Log(kLogTrace, "[%s] Sent %i byte.", kTxName, static_cast<int>(packet->length));
        CountSentPacket(packet->length);
    }
}

}  // namespace

void SerialTxThreadFunc(void* argument) {
    RunTransferThread(static_cast<SerialPort*>(argument), {.name = kTxName,
                                                           .kind = TransferKind::kTransmit,
                                                           .direction = "TX",
                                                           .record = "txOverlap",
                                                           .run = Transmit});
}

}  // namespace tarvik
