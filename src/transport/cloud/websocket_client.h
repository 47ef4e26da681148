#pragma once

#include <cstdint>

// A WebSocket client: Windows's HTTP service there, a library elsewhere. Its steps and error codes
// are those of the service on every system, so that a log reads the same.
namespace tarvik {

inline constexpr std::uint32_t kErrorInvalidParameter = 87;
inline constexpr std::uint32_t kErrorInvalidOperation = 4317;
inline constexpr std::uint32_t kErrorTimeout = 12002;
inline constexpr std::uint32_t kErrorNameNotResolved = 12007;
inline constexpr std::uint32_t kErrorOperationCancelled = 12017;
inline constexpr std::uint32_t kErrorCannotConnect = 12029;
inline constexpr std::uint32_t kErrorConnectionBroken = 12030;
inline constexpr std::uint32_t kErrorInvalidResponse = 12152;
inline constexpr std::uint32_t kErrorSecureFailure = 12175;

// Buffer types of what is received.
enum class MessageKind : std::uint8_t {
    kBinary = 0,
    kBinaryFragment = 1,
    kText = 2,
    kTextFragment = 3,
    kClose = 4,
};

struct WebSocketTarget {
    const char* server;
    std::uint32_t port;
    const char* endpoint;
    bool secure;  // over TLS
    // False: every certificate is accepted, with unknown issuers, wrong names, usages and dates.
    bool check_certificate;
    bool use_proxy;
    const char* proxy;  // must be valid text even if it is not used
    const char* user_agent;
};

// The steps of connecting, in their order.
enum class WebSocketStep : std::uint8_t {
    kServerText,  // this text and the next two must fit into 256 units of UTF-16
    kEndpointText,
    kProxyText,
    kOpen,     // the session
    kProxy,    // only with a proxy
    kConnect,  // only prepares the connection
    kOpenRequest,
    kCertificates,  // only if certificates are not checked
    kUpgradeOption,
    kSend,      // resolves, connects, asks the proxy, starts TLS and sends the request
    kReceive,   // the answer
    kComplete,  // the upgrade; closes the request
};

// Called for each step: before it is taken, with error 0, and again with the code if it fails.
struct WebSocketSteps {
    void (*report)(void* context, WebSocketStep step, std::uint32_t error);
    void* context;

    // Takes a step: `body` returns 0 or an error code. True: it succeeded.
    template <typename Body>
    bool Take(WebSocketStep step, Body body) const {
        report(context, step, 0);
        const std::uint32_t error = body();
        if (error != 0) report(context, step, error);
        return error == 0;
    }
};

// What a client may have open, in the order of closing.
enum class WebSocketHandle : std::uint8_t { kRequest, kWebSocket, kConnection, kSession };

// AbortWebSocket may be called by any thread between creating and closing. Everything else is for
// one thread, but receiving and sending may be done by one thread each at the same time.
struct WebSocketClient;
WebSocketClient* CreateWebSocketClient();  // null: out of memory

// False: a step has failed; everything is closed again.
bool ConnectWebSocket(WebSocketClient* client, const WebSocketTarget& target,
                      const WebSocketSteps& steps);

// Returns 0 or an error code. Receives at least one byte, at most `size`, of one message. `kind`
// and `bytes` are set on success only.
std::uint32_t ReceiveFromWebSocket(WebSocketClient* client, void* data, std::uint32_t size,
                                   std::uint32_t* bytes, MessageKind* kind);
// Returns 0 or an error code. Sends one binary message.
std::uint32_t SendToWebSocket(WebSocketClient* client, const void* data, std::uint32_t size);

// Makes every current and later step and transfer fail, within 100 ms. True: the WebSocket was
// open.
bool AbortWebSocket(WebSocketClient* client);

// Closes what is open and releases the client. `closed`, unless it is null, is called for each
// handle that was open.
void CloseWebSocket(WebSocketClient* client, void (*closed)(WebSocketHandle handle));

}  // namespace tarvik
