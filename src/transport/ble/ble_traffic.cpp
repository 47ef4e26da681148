// Packets from and to a connected dongle.
#include <cstring>

#include "link/fragmentation.h"
#include "link/packet_counters.h"
#include "link/wire_packets.h"
#include "support/log.h"
#include "transport/ble/ble_connection.h"
#include "transport/ble/ble_limits.h"
#include "transport/ble/ble_share.h"
#include "transport/ble/ble_text.h"
#include "transport/identification.h"

namespace tarvik {
// ---------------------------------------------------------------- receiving

void BleConnection::PassOn(PacketPtr packet) {
    PacketPtr complete;
    if (!FragReceivePacket(queues_, packet, &complete)) return;
    if (complete->type == kTypePing) {
        AnswerPing(queues_, complete);
    } else {
        EnqueueReceivedPacket(queues_, complete);
    }
}

// One notification carries one packet. Bytes after the packet's length are ignored.
void BleConnection::Receive(std::span<const std::uint8_t> value) {
    const auto received = static_cast<std::uint32_t>(value.size());
    if (received < MIN_PKT_SIZE) {
        Log(kLogTrace, "[BLE] Received packet too small: %u bytes", received);
        return;
    }
    PacketHeaderWire header;
    std::memcpy(&header, value.data(), sizeof header);
    const std::uint32_t length = header.length;
    if (length < MIN_PKT_SIZE || length > received) {
        ConsolePrint("[BLE-RX] ERROR: Invalid packet length: %u (received %u bytes)\n", length,
                     received);
        Log(kLogTrace, "[BLE-RX] Invalid packet length: %u (received %u bytes)", length, received);
        return;
    }
    PacketPtr packet = MakePacket(header.type, length);
    if (packet == nullptr) return;
    std::memcpy(packet->Bytes(), value.data(), length);
    ConsolePrint("[BLE-RX] Received %u bytes, type=%s\n", length,
                 TypeAsStored(packet->Bytes()).text);
    Log(kLogTrace, "[BLE-RX] Received %u bytes (type: %s)", length,
        TypeAsStored(packet->Bytes()).text);
    CountReceivedPacket(length);
    PassOn(std::move(packet));
}

// The radio may call on several threads at once; reassembly handles one packet at a time.
void BleConnection::Notified(std::span<const std::uint8_t> value) noexcept {
    try {
        const LockGuard hold(receive_lock_);
        if (ready_) Receive(value);
    } catch (...) {
        Log(kLogTrace, "[BLE] RX notification error: %s", BleErrorText().text);
    }
}

void BleConnection::NotificationFailed(const BleError& error) noexcept {
    Log(kLogTrace, "[BLE] RX notification error: %s", BleErrorText(error).text);
}

// ---------------------------------------------------------------- sending

BleStatus BleConnection::Write(const Packet& packet) {
    try {
        return device_->Write({packet.Bytes(), packet.length});
    } catch (...) {
        Log(kLogTrace, "[BLE-TX] Write error: %s", BleErrorText().text);
        return BleStatus::kUnreachable;
    }
}

void BleConnection::Send(const Packet& packet) {
    ConsolePrint("[BLE-TX] Sending %u bytes, type=%s\n", packet.length,
                 TypeAsStored(packet.Bytes()).text);
    Log(kLogTrace, "[BLE-TX] Sending %u bytes (type: %s)", packet.length,
        TypeAsStored(packet.Bytes()).text);
    const BleStatus status = Write(packet);
    if (status != BleStatus::kSuccess) {
        ConsolePrint("[BLE-TX] ERROR: Failed to write (status: %d)\n", static_cast<int>(status));
        Log(kLogTrace, "[BLE-TX] Failed to write: %d", static_cast<int>(status));
        return;
    }
    CountSentPacket(packet.length);
    ConsolePrint("[BLE-TX] Successfully sent %u bytes\n", packet.length);
    Log(kLogTrace, "[BLE-TX] Sent %u bytes", packet.length);
}

// Deliberate: a packet that could not be written is not sent again.
void BleConnection::TransmitWhileRunning() {
    const BleRadioThread inside(*radio_);
    while (running_) {
        const PacketPtr packet = TakePacket(&queues_->tx, GetBleLimits().transmit_poll_ms);
        if (packet != nullptr) Send(*packet);
    }
}

void BleConnection::BleTxThreadFunc(void* argument) {
    const auto connection = TakeBleShare<BleConnection>(argument);
    Log(kLogTrace, "[BLE] TX thread started");
    try {
        connection->TransmitWhileRunning();
    } catch (...) {
        Log(kLogTrace, "[BLE] TX thread cannot use the radio: %s", BleErrorText().text);
        connection->Lost();
    }
    Log(kLogTrace, "[BLE] TX thread exiting");
}

void BleConnection::BleRxThreadFunc(void* argument) {
    const auto connection = TakeBleShare<BleConnection>(argument);
    Log(kLogTrace, "[BLE] RX thread started");
    {
        const LockGuard hold(connection->stop_lock_);
        while (connection->running_)
            connection->stopped_.Wait(connection->stop_lock_, GetBleLimits().receive_poll_ms);
    }
    Log(kLogTrace, "[BLE] RX thread exiting");
}

}  // namespace tarvik
