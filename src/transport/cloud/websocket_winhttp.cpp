// The WebSocket client on Windows's HTTP service. The service's calls only begin here; a callback
// on one of its threads reports how they ended, so that an abort ends every wait at once.
#include <winsock2.h>

#include <windows.h>

#include <winhttp.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "link/packet.h"
#include "platform/lock.h"
#include "platform/process.h"
#include "platform/win32/library_reference.h"
#include "platform/win32/utf16.h"
#include "support/counted.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/keep_alive_win32.h"
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
static_assert(kErrorInvalidParameter == ERROR_INVALID_PARAMETER);
static_assert(static_cast<int>(MessageKind::kClose) == WINHTTP_WEB_SOCKET_CLOSE_BUFFER_TYPE);

namespace {

constexpr DWORD kTcpKeepAliveOption = 152;  // WINHTTP_OPTION_TCP_KEEPALIVE; MinGW's headers lack it

using ServiceText = ShownText<256>;

// A call that the service has begun.
struct PendingCall {
    bool done = false;
    DWORD error = 0;
    WINHTTP_WEB_SOCKET_STATUS status{};  // of transfers
};

}  // namespace

// Referred to by its owner and by each handle that reports: until the service has reported that the
// last of them is closed, it may use the buffers.
struct WebSocketClient : Counted {
    // Guards the handles. Held while a call begins or a handle is closed, not while a call is
    // waited for.
    OsLock handle_lock;
    HINTERNET session = nullptr;
    HINTERNET connection = nullptr;
    HINTERNET request = nullptr;
    HINTERNET web_socket = nullptr;
    // The service sets it once the session is closed and none of its callbacks runs any more. Null:
    // it does not offer that.
    HANDLE unload_notice = nullptr;
    void* library = nullptr;  // held for a late notice

    OsLock lock;  // guards all below; taken after handle_lock, and by the callback
    OsCondition changed;
    bool aborted = false;
    std::uint32_t reporting_handles = 0;
    PendingCall requesting, receiving, sending;

    std::uint8_t arriving[MAX_PKT_SIZE];  // the receiver's
    std::uint8_t leaving[MAX_PKT_SIZE];   // the sender's
};

namespace {

// False: the service still holds a handle.
bool AwaitClosing(WebSocketClient* client) {
    const LockGuard hold(client->lock);
    bool in_time = true;
    while (client->reporting_handles != 0 && in_time)
        in_time = client->changed.Wait(client->lock, GetCloudLimits().websocket_closing_ms);
    return client->reporting_handles == 0;
}

// False: a callback may still run or come.
bool AwaitLastCallback(WebSocketClient* client) {
    // Even the callback that reports the last handle's closing returns a little later than that.
    if (client->unload_notice == nullptr) return AwaitClosing(client);
    const auto limit = static_cast<DWORD>(GetCloudLimits().websocket_closing_ms);
    if (::WaitForSingleObject(client->unload_notice, limit) != WAIT_OBJECT_0) return false;
    ::CloseHandle(client->unload_notice);
    return true;
}

void CALLBACK OnLateNotice(PTP_CALLBACK_INSTANCE callback, void* context, PTP_WAIT wait,
                           TP_WAIT_RESULT) {
    const auto client = Ref<WebSocketClient>::Adopt(static_cast<WebSocketClient*>(context));
    ::CloseHandle(client->unload_notice);
    ::CloseThreadpoolWait(wait);
    ReleaseLibraryAfter(callback, client->library);
}

// A callback must find its code until it has returned. The library, the event, which the service
// still has, and the client are kept until the service sets the event, and go then. Without an
// event, or without memory to wait for it, nothing shows when the last callback has returned: then
// the library stays until the process ends, and so does an event.
void KeepUntilLastCallback(Ref<WebSocketClient> client) {
    if (client->unload_notice == nullptr) return OsKeepLibraryLoaded();
    const PTP_WAIT wait = ::CreateThreadpoolWait(OnLateNotice, client.Get(), nullptr);
    client->library = wait != nullptr ? OsHoldLibrary() : nullptr;
    if (client->library == nullptr) {
        if (wait != nullptr) ::CloseThreadpoolWait(wait);
        return OsKeepLibraryLoaded();
    }
    const HANDLE notice = client->unload_notice;
    static_cast<void>(client.Detach());  // the wait's now
    ::SetThreadpoolWait(wait, notice, nullptr);
}

std::uint32_t Check(const ServiceText& text) { return text.IsWhole() ? 0 : kErrorInvalidParameter; }

// ---------------------------------------------------------------- calls and how they end

void EndCall(WebSocketClient* client, PendingCall* call, DWORD error, const void* status) {
    const LockGuard hold(client->lock);
    call->done = true;
    call->error = error;
    if (status != nullptr) std::memcpy(&call->status, status, sizeof call->status);
    client->changed.WakeAll();
}

void EndFailedCall(WebSocketClient* client, const void* information, DWORD size) {
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

void CountReporting(WebSocketClient* client, int change) {
    const LockGuard hold(client->lock);
    client->reporting_handles += static_cast<std::uint32_t>(change);
    client->changed.WakeAll();
}

// For a handle that is about to report: it refers to the client until EndReporting.
void BeginReporting(WebSocketClient* client) {
    static_cast<void>(Ref<WebSocketClient>::Share(client).Detach());
    CountReporting(client, 1);
}

// For a handle that has reported its closing, or never will.
void EndReporting(WebSocketClient* client) {
    const auto last = Ref<WebSocketClient>::Adopt(client);
    CountReporting(client, -1);
}

// On any thread, even one that is inside a call of the service.
void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status, void* information, DWORD size) {
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
            EndReporting(client);
            break;
        default:
            break;
    }
}

DWORD_PTR ContextOf(WebSocketClient* client) { return reinterpret_cast<DWORD_PTR>(client); }

bool IsAborted(WebSocketClient* client) {
    const LockGuard hold(client->lock);
    return client->aborted;
}

std::uint32_t CodeOf(WebSocketClient* client, DWORD error) {
    return error != 0 && IsAborted(client) ? kErrorOperationCancelled : error;
}

DWORD ErrorOf(BOOL done) { return done ? 0 : ::GetLastError(); }

// Makes a call that does not wait. `call` gets the handle in `place` and returns an error code.
template <typename Call>
std::uint32_t Do(WebSocketClient* client, const HINTERNET* place, Call call) {
    const LockGuard hold(client->handle_lock);
    if (*place == nullptr) return kErrorOperationCancelled;
    return CodeOf(client, call(*place));
}

// Makes a call and waits until the callback reports its end.
template <typename Call>
std::uint32_t Await(WebSocketClient* client, const HINTERNET* place, PendingCall* pending,
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

// True: it was open.
bool Close(WebSocketClient* client, HINTERNET* place) {
    const LockGuard hold(client->handle_lock);
    const HINTERNET handle = std::exchange(*place, nullptr);
    return handle != nullptr && ::WinHttpCloseHandle(handle);
}

// ---------------------------------------------------------------- connecting

std::uint32_t Keep(WebSocketClient* client, HINTERNET* place, HINTERNET handle) {
    if (handle == nullptr) return CodeOf(client, ::GetLastError());
    *place = handle;
    return 0;
}

void RequestUnloadNotice(WebSocketClient* client) {
    HANDLE notice = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    if (notice == nullptr) return;
    if (::WinHttpSetOption(client->session, WINHTTP_OPTION_UNLOAD_NOTIFY_EVENT, &notice,
                           sizeof notice)) {
        client->unload_notice = notice;
    } else {
        ::CloseHandle(notice);
    }
}

// As the other carrier does for itself, where the service offers it: Windows 10 2004 and later. Its
// WebSockets send a pong every 30 s of their own accord.
void WatchPeerAndFallBack(HINTERNET session) {
    const CloudLimits& limits = GetCloudLimits();
    tcp_keepalive probes = KeepAlive(limits.link_idle_ms, limits.link_dead_ms);
    ::WinHttpSetOption(session, kTcpKeepAliveOption, &probes, sizeof probes);
    BOOL yes = TRUE;
    ::WinHttpSetOption(session, WINHTTP_OPTION_IPV6_FAST_FALLBACK, &yes, sizeof yes);
}

std::uint32_t OpenSession(WebSocketClient* client, const char* user_agent) {
    const ServiceText name(user_agent);
    if (const std::uint32_t error = Check(name)) return error;
    const LockGuard hold(client->handle_lock);
    const std::uint32_t error =
        Keep(client, &client->session,
             ::WinHttpOpen(name.Get(), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                           WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC));
    if (error != 0) return error;
    RequestUnloadNotice(client);
    WatchPeerAndFallBack(client->session);
    const DWORD events = WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES;
    const bool reports = ::WinHttpSetStatusCallback(client->session, OnStatus, events, 0) !=
                         WINHTTP_INVALID_STATUS_CALLBACK;
    return reports ? 0 : CodeOf(client, ::GetLastError());
}

std::uint32_t UseProxy(WebSocketClient* client, const wchar_t* name) {
    WINHTTP_PROXY_INFO proxy{};
    proxy.dwAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
    proxy.lpszProxy = const_cast<wchar_t*>(name);  // only read
    return Do(client, &client->session, [&](HINTERNET session) {
        return ErrorOf(::WinHttpSetOption(session, WINHTTP_OPTION_PROXY, &proxy, sizeof proxy));
    });
}

std::uint32_t OpenConnection(WebSocketClient* client, const wchar_t* server, std::uint32_t port) {
    const LockGuard hold(client->handle_lock);
    return Keep(client, &client->connection,
                ::WinHttpConnect(client->session, server, static_cast<INTERNET_PORT>(port), 0));
}

bool ReportTo(WebSocketClient* client, HINTERNET handle) {
    DWORD_PTR context = ContextOf(client);
    BeginReporting(client);
    if (::WinHttpSetOption(handle, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof context)) {
        return true;
    }
    EndReporting(client);
    return false;
}

std::uint32_t OpenRequest(WebSocketClient* client, const wchar_t* endpoint, bool secure) {
    const DWORD flags = WINHTTP_FLAG_BYPASS_PROXY_CACHE | (secure ? WINHTTP_FLAG_SECURE : 0u);
    const LockGuard hold(client->handle_lock);
    const HINTERNET opened =
        ::WinHttpOpenRequest(client->connection, L"GET", endpoint, nullptr, WINHTTP_NO_REFERER,
                             WINHTTP_DEFAULT_ACCEPT_TYPES, flags);
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

std::uint32_t RequestUpgrade(WebSocketClient* client) {
    return Do(client, &client->request, [](HINTERNET request) {
        return ErrorOf(
            ::WinHttpSetOption(request, WINHTTP_OPTION_UPGRADE_TO_WEB_SOCKET, nullptr, 0));
    });
}

std::uint32_t SendRequest(WebSocketClient* client) {
    return Await(client, &client->request, &client->requesting, [client](HINTERNET request) {
        return ErrorOf(::WinHttpSendRequest(request, WINHTTP_NO_ADDITIONAL_HEADERS, 0,
                                            WINHTTP_NO_REQUEST_DATA, 0, 0, ContextOf(client)));
    });
}

std::uint32_t ReceiveResponse(WebSocketClient* client) {
    return Await(client, &client->request, &client->requesting, [](HINTERNET request) {
        return ErrorOf(::WinHttpReceiveResponse(request, nullptr));
    });
}

bool IsUpgraded(HINTERNET request) {
    DWORD status = 0;
    DWORD size = sizeof status;
    return ::WinHttpQueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                                 WINHTTP_HEADER_NAME_BY_INDEX, &status, &size,
                                 WINHTTP_NO_HEADER_INDEX) &&
           status == HTTP_STATUS_SWITCH_PROTOCOLS;
}

std::uint32_t CompleteUpgrade(WebSocketClient* client) {
    const std::uint32_t error = Do(client, &client->request, [client](HINTERNET request) -> DWORD {
        if (!IsUpgraded(request)) return kErrorInvalidResponse;  // Wine does not check that
        BeginReporting(client);
        client->web_socket = ::WinHttpWebSocketCompleteUpgrade(request, ContextOf(client));
        if (client->web_socket != nullptr) return 0;
        const DWORD refused = ::GetLastError();
        EndReporting(client);
        return refused;
    });
    if (error == 0) Close(client, &client->request);
    return error;
}

bool TakeSteps(WebSocketClient* client, const WebSocketTarget& target,
               const WebSocketSteps& steps) {
    using Step = WebSocketStep;
    const ServiceText server(target.server), endpoint(target.endpoint), proxy(target.proxy);
    return steps.Take(Step::kServerText, [&] { return Check(server); }) &&
           steps.Take(Step::kEndpointText, [&] { return Check(endpoint); }) &&
           steps.Take(Step::kProxyText, [&] { return Check(proxy); }) &&
           steps.Take(Step::kOpen, [&] { return OpenSession(client, target.user_agent); }) &&
           (!target.use_proxy ||
            steps.Take(Step::kProxy, [&] { return UseProxy(client, proxy.Get()); })) &&
           steps.Take(Step::kConnect,
                      [&] { return OpenConnection(client, server.Get(), target.port); }) &&
           steps.Take(Step::kOpenRequest,
                      [&] { return OpenRequest(client, endpoint.Get(), target.secure); }) &&
           (target.check_certificate ||
            steps.Take(Step::kCertificates, [&] { return IgnoreCertificateFaults(client); })) &&
           steps.Take(Step::kUpgradeOption, [&] { return RequestUpgrade(client); }) &&
           steps.Take(Step::kSend, [&] { return SendRequest(client); }) &&
           steps.Take(Step::kReceive, [&] { return ReceiveResponse(client); }) &&
           steps.Take(Step::kComplete, [&] { return CompleteUpgrade(client); });
}

HINTERNET* PlaceOf(WebSocketClient* client, WebSocketHandle handle) {
    switch (handle) {
        case WebSocketHandle::kRequest:
            return &client->request;
        case WebSocketHandle::kWebSocket:
            return &client->web_socket;
        case WebSocketHandle::kConnection:
            return &client->connection;
        case WebSocketHandle::kSession:
            return &client->session;
    }
    return nullptr;
}

void CloseAll(WebSocketClient* client, void (*closed)(WebSocketHandle)) {
    for (const WebSocketHandle handle : {WebSocketHandle::kRequest, WebSocketHandle::kWebSocket,
                                         WebSocketHandle::kConnection, WebSocketHandle::kSession}) {
        if (Close(client, PlaceOf(client, handle)) && closed != nullptr) closed(handle);
    }
}

}  // namespace

WebSocketClient* CreateWebSocketClient() { return MakeCounted<WebSocketClient>().Detach(); }

bool ConnectWebSocket(WebSocketClient* client, const WebSocketTarget& target,
                      const WebSocketSteps& steps) {
    const bool connected = TakeSteps(client, target, steps);
    if (!connected) CloseAll(client, nullptr);
    return connected;
}

// An aborted call returns before the service is done with its buffer. So the buffer is the
// client's, not the caller's.
std::uint32_t ReceiveFromWebSocket(WebSocketClient* client, void* data, std::uint32_t size,
                                   std::uint32_t* bytes, MessageKind* kind) {
    const DWORD wanted = std::min<DWORD>(size, sizeof client->arriving);
    const std::uint32_t error =
        Await(client, &client->web_socket, &client->receiving, [&](HINTERNET web_socket) {
            DWORD at_once = 0;  // the callback reports it too
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

// Closing a handle ends its calls; this does not wait for their ends.
bool AbortWebSocket(WebSocketClient* client) {
    {
        const LockGuard hold(client->lock);
        client->aborted = true;
        client->changed.WakeAll();
    }
    Close(client, &client->request);
    return Close(client, &client->web_socket);
}

void CloseWebSocket(WebSocketClient* client, void (*closed)(WebSocketHandle)) {
    auto last = Ref<WebSocketClient>::Adopt(client);
    CloseAll(client, closed);
    if (!AwaitLastCallback(client)) KeepUntilLastCallback(std::move(last));
}

}  // namespace tarvik
