// The WebSocket client on Windows's HTTP service. The service's calls only begin here; a callback
// on one of its threads tells how they ended, so every wait can be given up at once.
#include <windows.h>

#include <winhttp.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>

#include "link/packet.h"
#include "platform/lock.h"
#include "platform/process.h"
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
static constexpr std::int32_t kClosingLimitMs = 250;

// A call that the service has begun.
struct PendingCall {
    bool done = false;
    DWORD error = 0;
    WINHTTP_WEB_SOCKET_STATUS status{};  // of transfers
};

// Lives until the service has told the closing of its last handle too: only then it leaves the
// buffers alone.
struct WebSocketClient {
    wchar_t server[kTextCapacity];
    wchar_t endpoint[kTextCapacity];
    wchar_t proxy[kTextCapacity];

    std::atomic<std::uint32_t> references{1};  // the owner's, and one for each reporting handle

    // Guards the handles. Held while a call begins or a handle is closed, not while one is waited
    // for.
    OsLock handle_lock;
    HINTERNET session = nullptr;
    HINTERNET connection = nullptr;
    HINTERNET request = nullptr;
    HINTERNET web_socket = nullptr;

    OsLock lock;  // guards all below; taken behind handle_lock, and by the callback
    OsCondition changed;
    bool aborted = false;
    std::uint32_t reporting_handles = 0;
    PendingCall requesting, receiving, sending;

    std::uint8_t arriving[MAX_PKT_SIZE];  // the receiver's
    std::uint8_t leaving[MAX_PKT_SIZE];   // the sender's
};

static void Release(WebSocketClient* client) {
    if (--client->references == 0) DeleteTracked(client);
}

WebSocketClient* CreateWebSocketClient() { return NewTracked<WebSocketClient>(); }

// False: the service still holds a handle.
static bool AwaitClosing(WebSocketClient* client) {
    const LockGuard hold(client->lock);
    bool in_time = true;
    while (client->reporting_handles != 0 && in_time)
        in_time = client->changed.Wait(client->lock, kClosingLimitMs);
    return client->reporting_handles == 0;
}

void DestroyWebSocketClient(WebSocketClient* client) {
    // The callback that is still to come must find its code.
    if (!AwaitClosing(client)) OsKeepLibraryLoaded();
    Release(client);
}

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

// ---------------------------------------------------------------- calls and how they end

static void EndCall(WebSocketClient* client, PendingCall* call, DWORD error, const void* status) {
    const LockGuard hold(client->lock);
    call->done = true;
    call->error = error;
    if (status != nullptr) std::memcpy(&call->status, status, sizeof call->status);
    client->changed.WakeAll();
}

static void EndFailedCall(WebSocketClient* client, const void* information, DWORD size) {
    WINHTTP_WEB_SOCKET_ASYNC_RESULT result{};
    if (size < sizeof result) {
        std::memcpy(&result.AsyncResult, information, sizeof result.AsyncResult);
        EndCall(client, &client->requesting, result.AsyncResult.dwError, nullptr);
        return;
    }
    std::memcpy(&result, information, sizeof result);
    const bool sending = result.Operation == WINHTTP_WEB_SOCKET_SEND_OPERATION;
    EndCall(client, sending ? &client->sending : &client->receiving, result.AsyncResult.dwError,
            nullptr);
}

static void CountReporting(WebSocketClient* client, int change) {
    const LockGuard hold(client->lock);
    client->reporting_handles += static_cast<std::uint32_t>(change);
    client->changed.WakeAll();
}

// Any thread, also one that is inside a call of the service.
static void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status, void* information,
                              DWORD size) {
    auto* const client = reinterpret_cast<WebSocketClient*>(context);
    if (client == nullptr) return;  // session and connection do not report
    switch (status) {
        case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
        case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
            EndCall(client, &client->requesting, 0, nullptr);
            break;
        case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
            EndCall(client, &client->receiving, 0, information);
            break;
        case WINHTTP_CALLBACK_STATUS_WRITE_COMPLETE:
            EndCall(client, &client->sending, 0, information);
            break;
        case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
            EndFailedCall(client, information, size);
            break;
        case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
            CountReporting(client, -1);
            Release(client);
            break;
        default:
            break;
    }
}

static DWORD_PTR ContextOf(WebSocketClient* client) { return reinterpret_cast<DWORD_PTR>(client); }

// For a handle that is about to report.
static void BeginReporting(WebSocketClient* client) {
    ++client->references;
    CountReporting(client, 1);
}

// For one that never will.
static void GiveUpReporting(WebSocketClient* client) {
    CountReporting(client, -1);
    Release(client);
}

static bool IsAborted(WebSocketClient* client) {
    const LockGuard hold(client->lock);
    return client->aborted;
}

static std::uint32_t CodeOf(WebSocketClient* client, DWORD error) {
    return error != 0 && IsAborted(client) ? kErrorOperationCancelled : error;
}

static DWORD ErrorOf(BOOL done) { return done ? 0 : ::GetLastError(); }

// What is done at once. `call` gets the handle in `place`, and returns an error code.
template <typename Call>
static std::uint32_t Do(WebSocketClient* client, const HINTERNET* place, Call call) {
    const LockGuard hold(client->handle_lock);
    if (*place == nullptr) return kErrorOperationCancelled;
    return CodeOf(client, call(*place));
}

// What the callback tells the end of.
template <typename Call>
static std::uint32_t Await(WebSocketClient* client, const HINTERNET* place, PendingCall* pending,
                           Call call) {
    {
        const LockGuard hold(client->lock);
        *pending = {};
    }
    const std::uint32_t begun = Do(client, place, call);
    if (begun != 0 && begun != ERROR_IO_PENDING) return begun;
    const LockGuard hold(client->lock);
    while (!pending->done && !client->aborted)
        client->changed.Wait(client->lock, -1);
    const DWORD error = pending->done ? pending->error : kErrorOperationCancelled;
    return error != 0 && client->aborted ? kErrorOperationCancelled : error;
}

// ---------------------------------------------------------------- connecting

static std::uint32_t Keep(WebSocketClient* client, HINTERNET* place, HINTERNET handle) {
    if (handle == nullptr) return CodeOf(client, ::GetLastError());
    *place = handle;
    return 0;
}

std::uint32_t OpenWebSocketSession(WebSocketClient* client, const char* user_agent) {
    wchar_t name[kTextCapacity];
    if (!ToUtf16(user_agent, name)) return ERROR_INVALID_PARAMETER;
    const LockGuard hold(client->handle_lock);
    const std::uint32_t error =
        Keep(client, &client->session,
             ::WinHttpOpen(name, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                           WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC));
    if (error != 0) return error;
    const DWORD events = WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES;
    const bool hears = ::WinHttpSetStatusCallback(client->session, OnStatus, events, 0) !=
                       WINHTTP_INVALID_STATUS_CALLBACK;
    return hears ? 0 : CodeOf(client, ::GetLastError());
}

std::uint32_t UseWebSocketProxy(WebSocketClient* client) {
    WINHTTP_PROXY_INFO proxy{};
    proxy.dwAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
    proxy.lpszProxy = client->proxy;
    return Do(client, &client->session, [&](HINTERNET session) {
        return ErrorOf(::WinHttpSetOption(session, WINHTTP_OPTION_PROXY, &proxy, sizeof proxy));
    });
}

std::uint32_t ConnectWebSocketServer(WebSocketClient* client, std::uint32_t port) {
    const LockGuard hold(client->handle_lock);
    return Keep(
        client, &client->connection,
        ::WinHttpConnect(client->session, client->server, static_cast<INTERNET_PORT>(port), 0));
}

static bool ReportTo(WebSocketClient* client, HINTERNET handle) {
    DWORD_PTR context = ContextOf(client);
    BeginReporting(client);
    if (::WinHttpSetOption(handle, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof context)) {
        return true;
    }
    GiveUpReporting(client);
    return false;
}

std::uint32_t OpenWebSocketRequest(WebSocketClient* client, bool secure) {
    const DWORD flags = WINHTTP_FLAG_BYPASS_PROXY_CACHE | (secure ? WINHTTP_FLAG_SECURE : 0u);
    const LockGuard hold(client->handle_lock);
    const HINTERNET opened =
        ::WinHttpOpenRequest(client->connection, L"GET", client->endpoint, nullptr,
                             WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, flags);
    if (opened != nullptr && !ReportTo(client, opened)) {
        const DWORD error = ::GetLastError();
        ::WinHttpCloseHandle(opened);
        return error;
    }
    return Keep(client, &client->request, opened);
}

std::uint32_t IgnoreCertificateFaults(WebSocketClient* client) {
    DWORD flags = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE |
                  SECURITY_FLAG_IGNORE_CERT_CN_INVALID | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID;
    return Do(client, &client->request, [&](HINTERNET request) {
        return ErrorOf(
            ::WinHttpSetOption(request, WINHTTP_OPTION_SECURITY_FLAGS, &flags, sizeof flags));
    });
}

std::uint32_t RequestWebSocketUpgrade(WebSocketClient* client) {
    return Do(client, &client->request, [](HINTERNET request) {
        return ErrorOf(
            ::WinHttpSetOption(request, WINHTTP_OPTION_UPGRADE_TO_WEB_SOCKET, nullptr, 0));
    });
}

std::uint32_t SendWebSocketRequest(WebSocketClient* client) {
    return Await(client, &client->request, &client->requesting, [client](HINTERNET request) {
        return ErrorOf(::WinHttpSendRequest(request, WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                                            WINHTTP_NO_REQUEST_DATA, 0, 0, ContextOf(client)));
    });
}

std::uint32_t ReceiveWebSocketResponse(WebSocketClient* client) {
    return Await(client, &client->request, &client->requesting, [](HINTERNET request) {
        return ErrorOf(::WinHttpReceiveResponse(request, nullptr));
    });
}

static bool IsUpgraded(HINTERNET request) {
    DWORD status = 0;
    DWORD size = sizeof status;
    return ::WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                                 WINHTTP_HEADER_NAME_BY_INDEX, &status, &size,
                                 WINHTTP_NO_HEADER_INDEX) &&
           status == HTTP_STATUS_SWITCH_PROTOCOLS;
}

std::uint32_t CompleteWebSocketUpgrade(WebSocketClient* client) {
    const std::uint32_t error = Do(client, &client->request, [client](HINTERNET request) -> DWORD {
        if (!IsUpgraded(request)) return kErrorInvalidResponse;  // Wine would not look
        BeginReporting(client);
        client->web_socket = ::WinHttpWebSocketCompleteUpgrade(request, ContextOf(client));
        if (client->web_socket != nullptr) return 0;
        const DWORD refused = ::GetLastError();
        GiveUpReporting(client);
        return refused;
    });
    if (error == 0) CloseWebSocketRequest(client);
    return error;
}

// ---------------------------------------------------------------- messages

// An aborted call ends here before the service is done with its buffer: that is the client's
// therefore, not the caller's.
std::uint32_t ReceiveFromWebSocket(WebSocketClient* client, void* data, std::uint32_t size,
                                   std::uint32_t* bytes, MessageKind* kind) {
    const DWORD wanted = std::min<DWORD>(size, sizeof client->arriving);
    const std::uint32_t error =
        Await(client, &client->web_socket, &client->receiving, [&](HINTERNET web_socket) {
            DWORD at_once = 0;  // told by the callback as well
            WINHTTP_WEB_SOCKET_BUFFER_TYPE type{};
            return ::WinHttpWebSocketReceive(web_socket, client->arriving, wanted, &at_once, &type);
        });
    if (error != 0) return error;
    *bytes = client->receiving.status.dwBytesTransferred;
    *kind = static_cast<MessageKind>(client->receiving.status.eBufferType);
    std::memcpy(data, client->arriving, *bytes);
    return 0;
}

std::uint32_t SendToWebSocket(WebSocketClient* client, const void* data, std::uint32_t size) {
    if (size > sizeof client->leaving) return ERROR_INVALID_PARAMETER;
    std::memcpy(client->leaving, data, size);
    return Await(client, &client->web_socket, &client->sending, [&](HINTERNET web_socket) {
        return ::WinHttpWebSocketSend(web_socket, WINHTTP_WEB_SOCKET_BINARY_MESSAGE_BUFFER_TYPE,
                                      client->leaving, size);
    });
}

// ---------------------------------------------------------------- closing

static bool Close(WebSocketClient* client, HINTERNET* place) {
    const LockGuard hold(client->handle_lock);
    const HINTERNET handle = std::exchange(*place, nullptr);
    return handle != nullptr && ::WinHttpCloseHandle(handle);
}

// Closing a handle ends what is under way on it; nobody waits for that here.
bool AbortWebSocket(WebSocketClient* client) {
    {
        const LockGuard hold(client->lock);
        client->aborted = true;
        client->changed.WakeAll();
    }
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
