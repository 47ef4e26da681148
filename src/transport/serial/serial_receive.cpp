#include <algorithm>
#include <cstdint>
#include <cstring>

#include "link/fragmentation.h"
#include "link/packet.h"
#include "link/packet_counters.h"
#include "link/packet_queue.h"
#include "support/device_log.h"
#include "support/log.h"
#include "transport/identification.h"
#include "transport/serial/serial_cipher.h"
#include "transport/serial/serial_limits.h"
#include "transport/serial/serial_port_threads.h"
#include "transport/serial/serial_transfer_thread.h"

namespace tarvik {

namespace {

constexpr char kRxName[] = "SerialRxThreadFunc";
constexpr char kReadName[] = "ReadPacketFromSerial";

// Deliberate: one chaining value for the process, shared by all ports and kept when a dongle is
// unplugged.
struct SharedCipher {
    OsLock lock;  // a packet is deciphered under one hold
    SerialCipher cipher;
};
Immortal<SharedCipher> shared_cipher;

enum class Opened : std::uint8_t {
    kPacket,   // replaced by the packet that was sealed
    kNothing,  // it holds no packet, or memory is out: to be dropped
    kTooLong,  // the sealed packet is longer than the one around it: the chain is lost
};

Opened OpenSealedPacket(PacketPtr* packet) {
    std::uint8_t* sealed = (*packet)->Bytes() + MIN_PKT_SIZE;
    const std::uint32_t sealed_size = (*packet)->length - MIN_PKT_SIZE;
    {
        LockGuard hold(shared_cipher->lock);
        shared_cipher->cipher.Decipher(sealed, sealed_size);
    }
    if (sealed_size < MIN_PKT_SIZE) return Opened::kNothing;
    PacketHeaderWire header;
    std::memcpy(&header, sealed, sizeof header);
    // Deliberate: compared with the length of the whole outer packet, not of what it seals.
    if (header.length > (*packet)->length) return Opened::kTooLong;
    if (header.length < MIN_PKT_SIZE) return Opened::kNothing;

    PacketPtr inner = MakePacket(header.type, header.length);
    if (!inner) return Opened::kNothing;
    // Bytes that the outer packet lacks stay zero.
    const std::uint32_t held = std::min(header.length, sealed_size);
    std::copy(sealed + MIN_PKT_SIZE, sealed + held, inner->Bytes() + MIN_PKT_SIZE);
    *packet = std::move(inner);
    return Opened::kPacket;
}

void PassOn(SerialPort* port, PacketPtr& packet) {
    if (packet->type == kTypePing) {
        AnswerPing(&port->queues, packet);
    } else {
        EnqueueReceivedPacket(&port->queues, packet);
    }
}

// False: the port must be closed.
bool AcceptPacket(SerialPort* port, PacketPtr packet) {
    CountReceivedPacket(packet->length);
    if (packet->type == kTypeCryp) {
        switch (OpenSealedPacket(&packet)) {
            case Opened::kPacket:
                break;
            case Opened::kNothing:
                return true;
            case Opened::kTooLong:
                ConsolePrint("Decryption failed\n");
                return false;
        }
    }
    if (packet->type == kTypeLog) {
        ProcessDeviceLogPacket(reinterpret_cast<const char*>(packet->Bytes() + MIN_PKT_SIZE),
                               packet->length - MIN_PKT_SIZE);
    }
    PacketPtr complete;
    if (FragReceivePacket(&port->queues, packet, &complete)) PassOn(port, complete);
    return true;
}

// The SYNC header itself is the packet that completes the handshake.
void AcceptSync(SerialPort* port) {
    ConsolePrint("Synchronized\n");
    Log(kLogTrace, "[%s] Synchronized\n", kRxName);
    PacketPtr sync = MakePacket(kTypeSync, MIN_PKT_SIZE);
    if (sync) AppendPacket(&port->queues.rx, sync, kNoTag);
}

bool AcceptBytes(SerialPort* port, ByteView bytes) {
    for (;;) {
        PacketPtr packet;
        switch (port->stream.Next(&bytes, &packet)) {
            case StreamEvent::kNeedsMore:
                return true;
            case StreamEvent::kSynchronized:
                AcceptSync(port);
                break;
            case StreamEvent::kInvalidHeader:
                Log(kLogTrace, "[%s] Invalid header size %i", kRxName,
                    static_cast<int>(port->stream.invalid_length()));
                break;
            case StreamEvent::kPacket:
                if (!AcceptPacket(port, std::move(packet))) return false;
                break;
        }
    }
}

void LogReadFailure(const SerialPort& port, const TransferOutcome& outcome) {
    const int error = static_cast<int>(outcome.code);
    switch (outcome.step) {
        case TransferStep::kStart:
            Log(kLogTrace, "[%s] Failed to read from serial port, error: %i", kReadName, error);
            break;
        case TransferStep::kResult:
            Log(kLogTrace, "[%s] Failed to get overlapped result, error: %i", kReadName, error);
            break;
        case TransferStep::kTimeout:
        case TransferStep::kWait:
        case TransferStep::kDone:
            Log(kLogTrace, "[%s] Wait error or timeout occurred", kReadName);
            break;
    }
    Log(kLogTrace,
        port.stream.in_packet() ? "[%s] Failed ReadPacketFromSerial" : "[%s] Failed to read header",
        kRxName);
}

// Reads until nothing is queued. False: the port must be closed.
bool ReceiveQueued(SerialPort* port, PortTransfer* transfer) {
    std::uint8_t bytes[kSerialMtu];
    while (port->running) {
        std::uint32_t queued = 0;
        if (!QueuedBytes(transfer, &queued)) {
            Log(kLogTrace, "[%s] Failed to get serial port status, error: %i", kRxName,
                OsLastError());
            return false;
        }
        if (queued == 0) return true;
        const auto wanted = std::min(queued, static_cast<std::uint32_t>(sizeof bytes));
        const TransferOutcome outcome = ReadPort(transfer, bytes, wanted);
        if (outcome.step != TransferStep::kDone) {
            LogReadFailure(*port, outcome);
            return false;
        }
        if (!AcceptBytes(port, {bytes, outcome.bytes})) return false;
    }
    return true;
}

void Receive(SerialPort* port, PortTransfer* transfer) {
    while (port->running) {
        if (!WaitForData(transfer, GetSerialLimits().receive_poll_ms)) {
            Log(kLogTrace, "[%s] Failed to wait for comm event, error: %i", kRxName, OsLastError());
            return;
        }
        if (!ReceiveQueued(port, transfer)) return;
    }
}

}  // namespace

void SerialRxThreadFunc(void* argument) {
    RunTransferThread(static_cast<SerialPort*>(argument), {.name = kRxName,
                                                           .kind = TransferKind::kReceive,
                                                           .direction = "RX",
                                                           .record = "rxOverlap",
                                                           .run = Receive});
}

}  // namespace tarvik
