#pragma once

#include "link/packet.h"
#include "transport/cloud/websocket_client.h"

// Cuts the byte stream of the binary messages into packets.
namespace tarvik {

// Where bytes come from, as ReceiveFromWebSocket says.
struct WebSocketSource {
    std::uint32_t (*Receive)(void* context, void* data, std::uint32_t size, std::uint32_t* bytes,
                             MessageKind* kind);
    void* context;
};

// Exactly `count` bytes. False, logged: the source has failed, has ended or sent something else
// than binary data, or the connection is to end.
bool WebSocketReceiveFull(const WebSocketSource& source, void* buffer, std::uint32_t count,
                          std::uint32_t* received);

// The next packet; none, with true, where a header with an impossible length has been dropped.
bool ReceiveWebSocketPacket(const WebSocketSource& source, PacketPtr* packet);

}  // namespace tarvik
