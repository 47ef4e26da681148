#pragma once

#include "link/packet.h"
#include "transport/cloud/websocket_client.h"

// Turns the byte stream of the binary messages into packets.
namespace tarvik {

// Where bytes come from; for the parameters see ReceiveFromWebSocket.
struct WebSocketSource {
    std::uint32_t (*Receive)(void* context, void* data, std::uint32_t size, std::uint32_t* bytes,
                             MessageKind* kind);
    void* context;
};

// Receives exactly `count` bytes. False, logged: the source has failed, has ended or sent something
// other than binary data, or the connection must end.
bool WebSocketReceiveFull(const WebSocketSource& source, void* buffer, std::uint32_t count,
                          std::uint32_t* received);

// Receives the next packet. True without a packet: a header with an impossible length was dropped.
bool ReceiveWebSocketPacket(const WebSocketSource& source, PacketPtr* packet);

}  // namespace tarvik
