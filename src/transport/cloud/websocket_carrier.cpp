// Packets in binary WebSocket messages. What arrives is one stream of bytes, however it is divided
// into messages; each packet that leaves is one message.
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
namespace {

constexpr char kRxName[] = "WebSocketRxThreadFunc";
constexpr char kTxName[] = "WebSocketTxThreadFunc";
constexpr char kConnectName[] = "WebsocketConnect";
constexpr char kUserAgent[] = "D-PDU DLL";

// Set and cleared by the connection thread, under sessionLock. The connection's threads, which run
// only while it is set, use it without the lock.
WebSocketClient* client = nullptr;

// ---------------------------------------------------------------- the threads

std::uint32_t ReceiveSome(void*, void* data, std::uint32_t size, std::uint32_t* bytes,
                          MessageKind* kind) {
    return ReceiveFromWebSocket(client, data, size, bytes, kind);
}

bool ReceiveOnce() {
    PacketPtr packet;
    if (!ReceiveWebSocketPacket({ReceiveSome, nullptr}, &packet)) return false;
    if (packet != nullptr) DispatchCloudPacket(std::move(packet));
    return true;
}

void WebSocketRxThreadFunc(void*) {
    RunReceiver(ReceiveOnce);
    Log(kLogTrace, "[%s] not online anymore. exiting.", kRxName);
}

std::uint32_t Send(const Packet& packet) {
    return SendToWebSocket(client, packet.Bytes(), packet.length);
}

void LogSendFailure(std::uint32_t error) {
    if (error == kErrorOperationCancelled) {
        CloudLog("[%s] ERROR_WINHTTP_OPERATION_CANCELLED, error: %i\n", kTxName,
                 static_cast<int>(error));
    } else {
        CloudLog("[%s] ret: %i, GetLastError: %i\n", kTxName, static_cast<int>(error),
                 static_cast<int>(error));
    }
}

void WebSocketTxThreadFunc(void*) { RunTransmitter({Send, LogSendFailure}, kTxName); }

constexpr CarrierThreads kThreads = {
    .receive = {WebSocketRxThreadFunc, "Tarvik WebSocketRxThread", kRxName},
    .transmit = {WebSocketTxThreadFunc, "Tarvik WebSocketTxThread", kTxName},
    .log_name = kConnectName,
    .LogFailure =
        [](const char* direction) {
            CloudLog("Failed to create %s thread: %i\n", direction, OsLastError());
        },
};

// ---------------------------------------------------------------- connecting

struct Attempt {
    WebSocketUrl url;
    std::int64_t begin_second;  // calendar time
};

void LogTarget(const WebSocketUrl& url) {
    CloudLog("     - Server:   '%s'\n", url.server);
    CloudLog("     - Port:     %d\n", static_cast<int>(url.port));
    CloudLog("     - Endpoint: '%s'\n", url.endpoint);
    CloudLog("     - Secure:   %s\n", url.secure ? "Yes" : "No");
}

void LogBeginning(const Attempt& attempt, WebSocketStep step) {
    if (step == WebSocketStep::kOpen) LogTarget(attempt.url);
    if (step == WebSocketStep::kProxy) CloudLog("     - Proxy:    '%s'\n", config.proxyAddress);
    if (step == WebSocketStep::kCertificates) CloudLog("   Disabling certificate checks\n");
}

void LogFailure(const Attempt& attempt, WebSocketStep step, int error) {
    const auto log = [error](const char* name) { CloudLog("%s Failed: %i\n", name, error); };
    switch (step) {
        case WebSocketStep::kServerText:
            CloudLog("Failed to convert server address to UTF-16\n");
            return;
        case WebSocketStep::kEndpointText:
            CloudLog("Failed to convert server endpoint to UTF-16\n");
            return;
        case WebSocketStep::kProxyText:
            CloudLog("Failed to convert proxy address to UTF-16\n");
            return;
        case WebSocketStep::kOpen:
            return log("WinHttpOpen");
        case WebSocketStep::kConnect:
            CloudLog("WinHttpConnect to %s:%d Failed: %i\n", attempt.url.server,
                     static_cast<int>(attempt.url.port), error);
            return;
        case WebSocketStep::kOpenRequest:
            return log("WinHttpOpenRequest");
        case WebSocketStep::kCertificates:
            return log("Failed to set security flags, WinHttpSetOption");
        case WebSocketStep::kProxy:
        case WebSocketStep::kUpgradeOption:
            return log("WinHttpSetOption");
        case WebSocketStep::kSend:
            return log("WinHttpSendRequest");
        case WebSocketStep::kReceive:
            return log("WinHttpReceiveResponse");
        case WebSocketStep::kComplete:
            return log("WinHttpWebSocketCompleteUpgrade");
    }
}

void OnStep(void* context, WebSocketStep step, std::uint32_t error) {
    const Attempt& attempt = *static_cast<const Attempt*>(context);
    if (error == 0) return LogBeginning(attempt, step);
    if (step == WebSocketStep::kSend && !cloud->quitRequested) {
        ShowConnectionFailure(error, attempt.url.server, attempt.begin_second);
    }
    LogFailure(attempt, step, static_cast<int>(error));
}

WebSocketTarget TargetOf(const WebSocketUrl& url) {
    return {
        .server = url.server,
        .port = url.port,
        .endpoint = url.endpoint,
        .secure = url.secure,
        .check_certificate = !config.disableCertValidation,
        .use_proxy = config.useProxy,
        .proxy = config.proxyAddress,
        .user_agent = kUserAgent,
    };
}

bool MakeClient() {
    WebSocketClient* made = CreateWebSocketClient();
    const LockGuard hold(cloud->sessionLock);
    client = made;
    return made != nullptr;
}

void CloseClient(void (*closed)(WebSocketHandle)) {
    const LockGuard hold(cloud->sessionLock);
    if (client != nullptr) CloseWebSocket(client, closed);
    client = nullptr;
}

// When the transmit thread could not be started. The receive thread uses the client, so it ends
// first.
void EndReceiveThread() {
    if (cloud->receive_thread == nullptr) return;
    AbortWebSocket(client);
    OsThreadJoin(cloud->receive_thread, -1);
    CloseCarrierThread(&cloud->receive_thread, kConnectName, "CloudRxThread");
}

// Holds no lock while it waits for the network, so that a stop can abort that.
bool WebsocketConnect() {
    Attempt attempt = {{}, OsCalendarSecond()};
    CloudLog("Using WebSockets...\n");
    CloudLog("   URL:      '%s'\n", config.websocketAddress);
    if (!ParseWebSocketUrl(config.websocketAddress, &attempt.url)) {
        CloudLog("Failed to parse WebSocket URL\n");
        return false;
    }
    if (!MakeClient() || !ConnectWebSocket(client, TargetOf(attempt.url), {OnStep, &attempt})) {
        return false;
    }
    if (StartCarrierThreads(kThreads)) return true;
    EndReceiveThread();
    CloseClient(nullptr);
    return false;
}

// ---------------------------------------------------------------- disconnecting

void WebsocketAbort() {
    const LockGuard hold(cloud->sessionLock);
    if (client != nullptr && AbortWebSocket(client)) {
        CloudLog("WinHttpCloseHandle (abort WebSocket)\n");
    }
}

const char* NameOf(WebSocketHandle handle) {
    switch (handle) {
        case WebSocketHandle::kRequest:
            return "request";
        case WebSocketHandle::kWebSocket:
            return "websocket";
        case WebSocketHandle::kConnection:
            return "connection";
        case WebSocketHandle::kSession:
            return "session";
    }
    return "";
}

void WebsocketDisconnect() {
    CloudLog("WebsocketDisconnect\n");
    CloseClient(
        [](WebSocketHandle handle) { CloudLog("WinHttpCloseHandle (%s)\n", NameOf(handle)); });
    CloudLog("WebsocketDisconnect ended\n");
}

}  // namespace

const CloudCarrier kWebSocketCarrier = {
    .Connect = WebsocketConnect,
    .Abort = WebsocketAbort,
    .Disconnect = WebsocketDisconnect,
};

}  // namespace tarvik
