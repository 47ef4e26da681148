#include <windows.h>

#include <winhttp.h>

#include <atomic>
#include <utility>

#include "platform/lock.h"
#include "support/memory.h"
#include "transport/cloud/websocket_client.h"

namespace tarvik {

static_assert(kErrorNameNotResolved == ERROR_WINHTTP_NAME_NOT_RESOLVED);
static_assert(kErrorOperationCancelled == ERROR_WINHTTP_OPERATION_CANCELLED);
static_assert(kErrorCannotConnect == ERROR_WINHTTP_CANNOT_CONNECT);
static_assert(kErrorConnectionBroken == ERROR_WINHTTP_CONNECTION_ERROR);
static_assert(kErrorTimeout == ERROR_WINHTTP_TIMEOUT);
static_assert(kErrorInvalidResponse == ERROR_WINHTTP_INVALID_SERVER_RESPONSE);
static_assert(kErrorSecureFailure == ERROR_WINHTTP_SECURE_FAILURE);
static_assert(kErrorInvalidOperation == ERROR_INVALID_OPERATION);
static_assert(static_cast<int>(MessageKind::kClose) == WINHTTP_WEB_SOCKET_CLOSE_BUFFER_TYPE);

static constexpr int kTextCapacity = 256;

struct WebSocketClient {
    wchar_t server[kTextCapacity];
    wchar_t endpoint[kTextCapacity];
    wchar_t proxy[kTextCapacity];

    OsLock lock;  // guards the handles; not held during calls that wait
    HINTERNET session = nullptr;
    HINTERNET connection = nullptr;
    HINTERNET request = nullptr;
    HINTERNET web_socket = nullptr;
    std::atomic<bool> aborted{false};
};

WebSocketClient* CreateWebSocketClient() { return NewTracked<WebSocketClient>(); }

void DestroyWebSocketClient(WebSocketClient* client) { DeleteTracked(client); }

// ---------------------------------------------------------------- texts

static bool ToUtf16(const char* text, wchar_t (&wide)[kTextCapacity]) {
    return ::MultiByteToWideChar(CP_UTF8, 0, text, -1, wide, kTextCapacity) != 0;
}

bool SetWebSocketServer(WebSocketClient* client, const char* server) {
    return ToUtf16(server, client->server);
}

bool SetWebSocketEndpoint(WebSocketClient* client, const char* endpoint) {
    return ToUtf16(endpoint, client->endpoint);
}

bool SetWebSocketProxyAddress(WebSocketClient* client, const char* proxy) {
    return ToUtf16(proxy, client->proxy);
}

// ---------------------------------------------------------------- connecting

static std::uint32_t CodeOf(const WebSocketClient& client, bool done) {
    if (done) return 0;
    const DWORD error = ::GetLastError();
    return client.aborted ? kErrorOperationCancelled : error;
}

static std::uint32_t Keep(WebSocketClient* client, HINTERNET* place, HINTERNET handle) {
    if (handle == nullptr) return CodeOf(*client, false);
    const LockGuard hold(client->lock);
    *place = handle;
    return 0;
}

std::uint32_t OpenWebSocketSession(WebSocketClient* client, const char* user_agent) {
    wchar_t name[kTextCapacity];
    if (!ToUtf16(user_agent, name)) return ERROR_INVALID_PARAMETER;
    return Keep(client, &client->session,
                ::WinHttpOpen(name, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                              WINHTTP_NO_PROXY_BYPASS, 0));
}

std::uint32_t UseWebSocketProxy(WebSocketClient* client) {
    WINHTTP_PROXY_INFO proxy{};
    proxy.dwAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
    proxy.lpszProxy = client->proxy;
    return CodeOf(*client, ::WinHttpSetOption(client->session, WINHTTP_OPTION_PROXY, &proxy,
                                              sizeof proxy) != FALSE);
}

std::uint32_t ConnectWebSocketServer(WebSocketClient* client, std::uint32_t port) {
    return Keep(
        client, &client->connection,
        ::WinHttpConnect(client->session, client->server, static_cast<INTERNET_PORT>(port), 0));
}

std::uint32_t OpenWebSocketRequest(WebSocketClient* client, bool secure) {
    const DWORD flags = WINHTTP_FLAG_BYPASS_PROXY_CACHE | (secure ? WINHTTP_FLAG_SECURE : 0u);
    return Keep(client, &client->request,
                ::WinHttpOpenRequest(client->connection, L"GET", client->endpoint, nullptr,
                                     WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, flags));
}

// The calls below wait, or may come after an abort: they use the handle without the lock, and fail
// when it has been closed meanwhile.
static HINTERNET Request(WebSocketClient* client) {
    const LockGuard hold(client->lock);
    return client->request;
}

std::uint32_t IgnoreCertificateFaults(WebSocketClient* client) {
    DWORD flags = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE |
                  SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
    return CodeOf(*client, ::WinHttpSetOption(Request(client), WINHTTP_OPTION_SECURITY_FLAGS,
                                              &flags, sizeof flags) != FALSE);
}

std::uint32_t RequestWebSocketUpgrade(WebSocketClient* client) {
    return CodeOf(*client, ::WinHttpSetOption(Request(client), WINHTTP_OPTION_UPGRADE_TO_WEB_SOCKET,
                                              nullptr, 0) != FALSE);
}

std::uint32_t SendWebSocketRequest(WebSocketClient* client) {
    return CodeOf(*client, ::WinHttpSendRequest(Request(client), WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                                                WINHTTP_NO_REQUEST_DATA, 0, 0, 0) != FALSE);
}

std::uint32_t ReceiveWebSocketResponse(WebSocketClient* client) {
    return CodeOf(*client, ::WinHttpReceiveResponse(Request(client), nullptr) != FALSE);
}

std::uint32_t CompleteWebSocketUpgrade(WebSocketClient* client) {
    const HINTERNET opened = ::WinHttpWebSocketCompleteUpgrade(Request(client), 0);
    const std::uint32_t error = Keep(client, &client->web_socket, opened);
    if (error == 0) CloseWebSocketRequest(client);
    return error;
}

// ---------------------------------------------------------------- messages

static HINTERNET WebSocket(WebSocketClient* client) {
    const LockGuard hold(client->lock);
    return client->web_socket;
}

static std::uint32_t CodeOf(const WebSocketClient& client, DWORD error) {
    return error != 0 && client.aborted ? kErrorOperationCancelled : error;
}

std::uint32_t ReceiveFromWebSocket(WebSocketClient* client, void* data, std::uint32_t size,
                                   std::uint32_t* bytes, MessageKind* kind) {
    const HINTERNET web_socket = WebSocket(client);
    if (web_socket == nullptr) return kErrorOperationCancelled;
    DWORD received = 0;
    WINHTTP_WEB_SOCKET_BUFFER_TYPE type = WINHTTP_WEB_SOCKET_BINARY_MESSAGE_BUFFER_TYPE;
    const DWORD error = ::WinHttpWebSocketReceive(web_socket, data, size, &received, &type);
    *bytes = received;
    *kind = static_cast<MessageKind>(type);
    return CodeOf(*client, error);
}

std::uint32_t SendToWebSocket(WebSocketClient* client, const void* data, std::uint32_t size) {
    const HINTERNET web_socket = WebSocket(client);
    if (web_socket == nullptr) return kErrorOperationCancelled;
    return CodeOf(*client,
                  ::WinHttpWebSocketSend(web_socket, WINHTTP_WEB_SOCKET_BINARY_MESSAGE_BUFFER_TYPE,
                                         const_cast<void*>(data), size));
}

// ---------------------------------------------------------------- closing

static bool Close(WebSocketClient* client, HINTERNET* place) {
    HINTERNET handle = nullptr;
    {
        const LockGuard hold(client->lock);
        handle = std::exchange(*place, nullptr);
    }
    return handle != nullptr && ::WinHttpCloseHandle(handle);
}

// Closing the request ends a connection attempt that waits.
bool AbortWebSocket(WebSocketClient* client) {
    client->aborted = true;
    CloseWebSocketRequest(client);
    return CloseWebSocket(client);
}

bool CloseWebSocketRequest(WebSocketClient* client) { return Close(client, &client->request); }

bool CloseWebSocket(WebSocketClient* client) { return Close(client, &client->web_socket); }

bool CloseWebSocketConnection(WebSocketClient* client) {
    return Close(client, &client->connection);
}

bool CloseWebSocketSession(WebSocketClient* client) { return Close(client, &client->session); }

}  // namespace tarvik
