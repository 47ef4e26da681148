// Packets in binary WebSocket messages. What arrives is one stream of bytes, however it was cut
// into messages; what leaves is one message a packet.
#include "platform/process.h"
#include "support/config.h"
#include "transport/cloud/cloud_carrier.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/cloud_traffic.h"
#include "transport/cloud/connection_failure.h"
#include "transport/cloud/websocket_client.h"
#include "transport/cloud/websocket_receive.h"
#include "transport/cloud/websocket_url.h"

namespace tarvik {

static constexpr char kRxName[] = "WebSocketRxThreadFunc";
static constexpr char kTxName[] = "WebSocketTxThreadFunc";
static constexpr char kConnectName[] = "WebsocketConnect";
static constexpr char kUserAgent[] = "D-PDU DLL";

// Set and cleared by the connection thread, under sessionLock; the threads of the connection, which
// come and go while it is set, use it without.
static WebSocketClient* client = nullptr;

static bool IsDisconnecting() { return cloud->connState == ConnState::kDisconnecting; }

// ---------------------------------------------------------------- the threads

static std::uint32_t ReceiveSome(void*, void* data, std::uint32_t size, std::uint32_t* bytes,
                                 MessageKind* kind) {
    return ReceiveFromWebSocket(client, data, size, bytes, kind);
}

static void WebSocketRxThreadFunc(void*) {
    const WebSocketSource source = {ReceiveSome, nullptr};
    BeginReceiving();
    while (GoesOnReceiving()) {
        PacketPtr packet;
        if (!ReceiveWebSocketPacket(source, &packet)) break;
        if (packet != nullptr) DispatchCloudPacket(std::move(packet));
    }
    EndReceiving();
    Log(kLogTrace, "[%s] not online anymore. exiting.", kRxName);
}

static void LogSendFailure(std::uint32_t error) {
    if (error == kErrorOperationCancelled) {
        CloudLog("[%s] ERROR_WINHTTP_OPERATION_CANCELLED, error: %i\n", kTxName,
                 static_cast<int>(error));
    } else {
        CloudLog("[%s] ret: %i, GetLastError: %i\n", kTxName, static_cast<int>(error),
                 static_cast<int>(error));
    }
}

static void WebSocketTxThreadFunc(void*) {
    while (!IsDisconnecting()) {
        PacketPtr packet = NextCloudPacket();
        if (packet == nullptr) continue;
        const std::uint32_t error = SendToWebSocket(client, packet->Bytes(), packet->length);
        if (error == 0) continue;
        PutBackCloudPacket(std::move(packet));
        LogSendFailure(error);
        break;
    }
    if (IsDisconnecting()) Log(kLogTrace, "[%s] not online anymore. exiting.", kTxName);
}

// ---------------------------------------------------------------- connecting

// Each step logs its own failure.
static bool Done(std::uint32_t error, const char* format_name) {
    if (error == 0) return true;
    CloudLog("%s Failed: %i\n", format_name, static_cast<int>(error));
    return false;
}

static bool SetTexts(const WebSocketUrl& url) {
    if (!SetWebSocketServer(client, url.server)) {
        CloudLog("Failed to convert server address to UTF-16\n");
        return false;
    }
    if (!SetWebSocketEndpoint(client, url.endpoint)) {
        CloudLog("Failed to convert server endpoint to UTF-16\n");
        return false;
    }
    if (!SetWebSocketProxyAddress(client, config.proxyAddress)) {
        CloudLog("Failed to convert proxy address to UTF-16\n");
        return false;
    }
    return true;
}

static void LogTarget(const WebSocketUrl& url) {
    CloudLog("     - Server:   '%s'\n", url.server);
    CloudLog("     - Port:     %d\n", static_cast<int>(url.port));
    CloudLog("     - Endpoint: '%s'\n", url.endpoint);
    CloudLog("     - Secure:   %s\n", url.secure ? "Yes" : "No");
}

static bool OpenSession() {
    if (!Done(OpenWebSocketSession(client, kUserAgent), "WinHttpOpen")) return false;
    if (!config.useProxy) return true;
    CloudLog("     - Proxy:    '%s'\n", config.proxyAddress);
    return Done(UseWebSocketProxy(client), "WinHttpSetOption");
}

static bool OpenConnection(const WebSocketUrl& url) {
    const std::uint32_t error = ConnectWebSocketServer(client, url.port);
    if (error == 0) return true;
    CloudLog("WinHttpConnect to %s:%d Failed: %i\n", url.server, static_cast<int>(url.port),
             static_cast<int>(error));
    return false;
}

static bool OpenRequest(const WebSocketUrl& url) {
    if (!Done(OpenWebSocketRequest(client, url.secure), "WinHttpOpenRequest")) return false;
    if (config.disableCertValidation) {
        CloudLog("   Disabling certificate checks\n");
        if (!Done(IgnoreCertificateFaults(client),
                  "Failed to set security flags, WinHttpSetOption")) {
            return false;
        }
    }
    return Done(RequestWebSocketUpgrade(client), "WinHttpSetOption");
}

static bool Upgrade(const WebSocketUrl& url, std::int64_t attempt_second) {
    const std::uint32_t error = SendWebSocketRequest(client);
    if (error != 0 && !cloud->quitRequested) {
        ShowConnectionFailure(error, url.server, attempt_second);
    }
    return Done(error, "WinHttpSendRequest") &&
           Done(ReceiveWebSocketResponse(client), "WinHttpReceiveResponse") &&
           Done(CompleteWebSocketUpgrade(client), "WinHttpWebSocketCompleteUpgrade");
}

static bool StartThreads() {
    cloud->receive_thread = StartCarrierThread(WebSocketRxThreadFunc, "Tarvik WebSocketRxThread",
                                               kRxName, kConnectName);
    if (cloud->receive_thread == nullptr) {
        CloudLog("Failed to create RX thread: %i\n", OsLastError());
        return false;
    }
    cloud->transmit_thread = StartCarrierThread(WebSocketTxThreadFunc, "Tarvik WebSocketTxThread",
                                                kTxName, kConnectName);
    if (cloud->transmit_thread == nullptr) {
        CloudLog("Failed to create TX thread: %i\n", OsLastError());
        return false;
    }
    return true;
}

// A thread whose fellow could not be started. It uses the handles, so it ends before they do.
static void CloseEarly(OsThread** thread, const char* name) {
    if (*thread == nullptr) return;
    AbortWebSocket(client);
    OsThreadJoin(*thread, -1);
    Log(kLogTrace, "[%s] Closing Thread handle 0x%p (%s)", kConnectName, OsThreadHandle(*thread),
        name);
    OsThreadClose(*thread);
    *thread = nullptr;
}

static void GiveUp() {
    CloseEarly(&cloud->transmit_thread, "CloudTxThread");
    CloseEarly(&cloud->receive_thread, "CloudRxThread");
    const LockGuard hold(cloud->sessionLock);
    CloseWebSocket(client);
    CloseWebSocketRequest(client);
    CloseWebSocketConnection(client);
    CloseWebSocketSession(client);
}

static bool MakeClient() {
    WebSocketClient* made = CreateWebSocketClient();
    const LockGuard hold(cloud->sessionLock);
    client = made;
    return made != nullptr;
}

// The lock is not held while the network is waited for, so that a stop can abort that.
static bool WebsocketConnect() {
    const std::int64_t attempt_second = OsCalendarSecond();
    CloudLog("Using WebSockets...\n");
    CloudLog("   URL:      '%s'\n", config.websocketAddress);
    WebSocketUrl url;
    if (!ParseWebSocketUrl(config.websocketAddress, &url)) {
        CloudLog("Failed to parse WebSocket URL\n");
        return false;
    }
    if (!MakeClient() || !SetTexts(url)) return false;
    LogTarget(url);
    if (OpenSession() && OpenConnection(url) && OpenRequest(url) && Upgrade(url, attempt_second) &&
        StartThreads()) {
        return true;
    }
    GiveUp();
    return false;
}

// ---------------------------------------------------------------- disconnecting

static void WebsocketAbort() {
    const LockGuard hold(cloud->sessionLock);
    if (client != nullptr && AbortWebSocket(client)) {
        CloudLog("WinHttpCloseHandle (abort WebSocket)\n");
    }
}

static void LogIfClosed(bool closed, const char* handle) {
    if (closed) CloudLog("WinHttpCloseHandle (%s)\n", handle);
}

static void WebsocketDisconnect() {
    CloudLog("WebsocketDisconnect\n");
    {
        const LockGuard hold(cloud->sessionLock);
        if (client != nullptr) {
            LogIfClosed(CloseWebSocketRequest(client), "request");
            LogIfClosed(CloseWebSocket(client), "websocket");
            LogIfClosed(CloseWebSocketConnection(client), "connection");
            LogIfClosed(CloseWebSocketSession(client), "session");
            DestroyWebSocketClient(client);
        }
        client = nullptr;
    }
    CloudLog("WebsocketDisconnect ended\n");
}

const CloudCarrier kWebSocketCarrier = {
    .Connect = WebsocketConnect,
    .Abort = WebsocketAbort,
    .Disconnect = WebsocketDisconnect,
};

}  // namespace tarvik
