#include "transport/cloud/websocket_receive.h"

#include <cstring>

#include "support/log.h"
#include "transport/cloud/cloud_state.h"

namespace tarvik {
namespace {

constexpr char kFullName[] = "WebSocketReceiveFull";
constexpr char kRxName[] = "WebSocketRxThreadFunc";

void LogReceiveFailure(std::uint32_t error) {
    if (error == kErrorOperationCancelled || error == kErrorInvalidOperation) {
        Log(kLogTrace, "[%s] ERROR_WINHTTP_OPERATION_CANCELLED, error: %i", kFullName,
            static_cast<int>(error));
    } else {
        Log(kLogTrace, "[%s] WinHttpWebSocketReceive failed: %u", kFullName, error);
    }
}

}  // namespace

bool WebSocketReceiveFull(const WebSocketSource& source, void* buffer, std::uint32_t count,
                          std::uint32_t* received) {
    *received = 0;
    while (*received < count) {
        if (IsDisconnecting()) {
            Log(kLogTrace, "[%s] Stopping state detected", kFullName);
            return false;
        }
        std::uint32_t bytes = 0;
        MessageKind kind = MessageKind::kBinary;
        const std::uint32_t error =
            source.Receive(source.context, static_cast<std::uint8_t*>(buffer) + *received,
                           count - *received, &bytes, &kind);
        if (error != 0) {
            LogReceiveFailure(error);
            return false;
        }
        if (kind != MessageKind::kBinary && kind != MessageKind::kBinaryFragment) {
            Log(kLogTrace, "[%s] Unexpected buffer type: %d", kFullName, static_cast<int>(kind));
            return false;
        }
        *received += bytes;
    }
    return true;
}

bool ReceiveWebSocketPacket(const WebSocketSource& source, PacketPtr* packet) {
    std::uint8_t header[MIN_PKT_SIZE];
    std::uint32_t received = 0;
    if (!WebSocketReceiveFull(source, header, sizeof header, &received)) {
        Log(kLogTrace, "[%s] Failed to receive header", kRxName);
        return false;
    }
    const std::uint32_t length = LoadU32(header + 4);
    if (length < MIN_PKT_SIZE || length > MAX_PKT_SIZE) {
        // Deliberate: no resynchronisation, the stream's next eight bytes are the next header.
        Log(kLogTrace, "[%s] Invalid packet length: %u (min: %zu, max: %d)", kRxName, length,
            std::size_t{MIN_PKT_SIZE}, static_cast<int>(MAX_PKT_SIZE));
        return true;
    }
    PacketPtr whole(static_cast<Packet*>(AllocateMem(length)));
    if (whole == nullptr) {
        Log(kLogCritical, "[%s] Failed to realloc", kRxName);
        return false;
    }
    std::memcpy(whole->Bytes(), header, sizeof header);
    if (!WebSocketReceiveFull(source, whole->Bytes() + sizeof header, length - MIN_PKT_SIZE,
                              &received)) {
        Log(kLogTrace, "[%s] Failed to receive payload", kRxName);
        return false;
    }
    *packet = std::move(whole);
    return true;
}

}  // namespace tarvik
