#pragma once

#include <cstdint>

// The system's WebSocket client, in the steps of Windows's HTTP service, which is what stands
// behind it there. Elsewhere a library does what the step's name says, where it does not only keep
// the values for a later step. The error codes are those of the service on every system, so that a
// log reads the same.
namespace tarvik {

inline constexpr std::uint32_t kErrorNameNotResolved = 12007;
inline constexpr std::uint32_t kErrorOperationCancelled = 12017;
inline constexpr std::uint32_t kErrorCannotConnect = 12029;
inline constexpr std::uint32_t kErrorConnectionBroken = 12030;
inline constexpr std::uint32_t kErrorTimeout = 12002;
inline constexpr std::uint32_t kErrorInvalidResponse = 12152;
inline constexpr std::uint32_t kErrorSecureFailure = 12175;
inline constexpr std::uint32_t kErrorInvalidOperation = 4317;

// Buffer types of what is received.
enum class MessageKind : std::uint8_t {
    kBinary = 0,
    kBinaryFragment = 1,
    kText = 2,
    kTextFragment = 3,
    kClose = 4,
};

// The four handles of a connection. Each step returns 0 or an error code; a step that failed is
// followed by the closing functions only. AbortWebSocket may be called by any thread while the
// object lives, the steps and the closing functions by one thread, a receive and a send by one
// thread each, at the same time.
struct WebSocketClient;
WebSocketClient* CreateWebSocketClient();  // null: memory is out
void DestroyWebSocketClient(WebSocketClient* client);

// False: the text does not fit into what the system wants, 256 units of UTF-16. They stay valid
// for the steps below.
bool SetWebSocketServer(WebSocketClient* client, const char* server);
bool SetWebSocketEndpoint(WebSocketClient* client, const char* endpoint);
bool SetWebSocketProxyAddress(WebSocketClient* client, const char* proxy);

std::uint32_t OpenWebSocketSession(WebSocketClient* client, const char* user_agent);
std::uint32_t UseWebSocketProxy(WebSocketClient* client);
std::uint32_t ConnectWebSocketServer(WebSocketClient* client, std::uint32_t port);
std::uint32_t OpenWebSocketRequest(WebSocketClient* client, bool secure);
// Accepts every certificate: unknown issuers, wrong names, wrong usages, wrong dates.
std::uint32_t IgnoreCertificateFaults(WebSocketClient* client);
std::uint32_t RequestWebSocketUpgrade(WebSocketClient* client);
// Resolves, connects, asks the proxy, greets over TLS and sends the request.
std::uint32_t SendWebSocketRequest(WebSocketClient* client);
std::uint32_t ReceiveWebSocketResponse(WebSocketClient* client);
std::uint32_t CompleteWebSocketUpgrade(WebSocketClient* client);  // closes the request

// At least one byte, at most `size`, of one message. `kind` and `bytes` are set on success only.
std::uint32_t ReceiveFromWebSocket(WebSocketClient* client, void* data, std::uint32_t size,
                                   std::uint32_t* bytes, MessageKind* kind);
// One binary message.
std::uint32_t SendToWebSocket(WebSocketClient* client, const void* data, std::uint32_t size);

// Makes everything that is under way or comes later fail, within 100 ms. True: the WebSocket was
// open.
bool AbortWebSocket(WebSocketClient* client);

// True: it was open.
bool CloseWebSocketRequest(WebSocketClient* client);
bool CloseWebSocket(WebSocketClient* client);
bool CloseWebSocketConnection(WebSocketClient* client);
bool CloseWebSocketSession(WebSocketClient* client);

}  // namespace tarvik
