// Packets on a TCP stream, one after another.
#include "platform/tick.h"
#include "support/config.h"
#include "transport/cloud/cloud_carrier.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/cloud_traffic.h"
#include "transport/cloud/server_address.h"
#include "transport/cloud/tcp_lookup.h"
#include "transport/cloud/tcp_socket.h"

namespace tarvik {
namespace {

constexpr char kRxName[] = "RxThreadFunc";
constexpr char kTxName[] = "TxThreadFunc";

// Set and cleared by the connection thread, under sessionLock. The connection's threads, which run
// only while it is set, use it without the lock.
TcpSocket* relay_socket = nullptr;
bool network_started = false;  // only the connection thread uses it

// ---------------------------------------------------------------- receiving

// Leaves bytes that cannot be taken yet and sleeps, so that the thread does not spin on them.
// False: the peer has ended, so nothing more can follow them.
bool LeaveBytes(std::uint32_t pause_ms) {
    if (TcpPeerEnded(relay_socket)) return false;
    SleepMs(pause_ms);
    return true;
}

// Deliberate: reads once. A packet that has not arrived completely ends the connection.
bool ReceivePacket(std::uint32_t length) {
    PacketPtr packet(static_cast<Packet*>(AllocateMem(length)));
    if (packet == nullptr) return false;
    if (ReadTcp(relay_socket, packet->Bytes(), length) != static_cast<int>(length)) return false;
    DispatchCloudPacket(std::move(packet));
    return true;
}

// False: the connection has ended.
bool ReceiveOnce() {
    switch (WaitForTcpData(relay_socket, GetCloudLimits().receive_wait_ms)) {
        case TcpWait::kFailed:
            return false;
        case TcpWait::kTimeout:
            return true;
        case TcpWait::kReadable:
            break;
    }
    std::uint8_t header[MIN_PKT_SIZE];
    const int peeked = PeekTcp(relay_socket, header, sizeof header);
    if (peeked < 1) return false;
    if (peeked < static_cast<int>(sizeof header))
        return LeaveBytes(GetCloudLimits().incomplete_pause_ms);
    const std::uint32_t length = LoadU32(header + 4);
    // Deliberate: such a header is never taken, so the next look finds it again.
    if (length < MIN_PKT_SIZE) return LeaveBytes(GetCloudLimits().invalid_pause_ms);
    return length <= MAX_PKT_SIZE && ReceivePacket(length);
}

void RxThreadFunc(void*) {
    RunReceiver(ReceiveOnce);
    if (IsDisconnecting()) Log(kLogTrace, "[%s] not online anymore. exiting.", kRxName);
}

// ---------------------------------------------------------------- transmitting

std::uint32_t Send(const Packet& packet) {
    return SendTcp(relay_socket, packet.Bytes(), packet.length) ? 0 : 1;
}

void TxThreadFunc(void*) { RunTransmitter({Send, nullptr}, kTxName); }

// ---------------------------------------------------------------- connecting

bool ReadAddress(ServerAddress* address) {
    if (config.serverAddress[0] == '\0') {
        CloudLog("[Cloud] ERROR: Server address not configured in config.json\n");
        CloudLog("[Cloud] Please set 'serverAddress' to '<host>:<port>' in config.json\n");
        return false;
    }
    if (ParseServerAddress(config.serverAddress, address)) return true;
    CloudLog("[Cloud] ERROR: Invalid serverAddress format. Expected '<host>:<port>' but got '%s'\n",
             config.serverAddress);
    return false;
}

TcpSocket* ConnectToRelay(const ServerAddress& address) {
    char port[8];
    FormatText(port, sizeof port, "%u", static_cast<unsigned>(address.port));
    CloudLog("Connecting to %s:%s\n", address.host, port);
    TcpAddresses* addresses = nullptr;
    const int result = LookUpTcp(address.host, port, cloud->quitRequested, &addresses);
    if (result == kLookUpAborted) return nullptr;
    if (result != 0) {
        CloudLog("[Cloud] ERROR: getaddrinfo failed for %s:%s (%d)\n", address.host, port, result);
        return nullptr;
    }
    TcpSocket* connected = ConnectTcp(*addresses, cloud->quitRequested);
    FreeTcpAddresses(addresses);
    if (connected == nullptr) CloudLog("[Cloud] Connect Failed\n");
    return connected;
}

constexpr CarrierThreads kThreads = {
    .receive = {RxThreadFunc, "Tarvik CloudRxThread", kRxName},
    .transmit = {TxThreadFunc, "Tarvik CloudTxThread", kTxName},
    .log_name = "NativeConnect",
    .LogFailure =
        [](const char* direction) { CloudLog("[Cloud] Failed to create %s thread\n", direction); },
};

bool NativeConnect() {
    CloudLog("Connecting...\n");
    StartNetwork();
    network_started = true;
    ServerAddress address;
    if (!ReadAddress(&address)) return false;
    TcpSocket* connected = ConnectToRelay(address);
    if (connected == nullptr) return false;
    {
        const LockGuard hold(cloud->sessionLock);
        relay_socket = connected;
    }
    return StartCarrierThreads(kThreads);
}

void NativeAbort() {
    const LockGuard hold(cloud->sessionLock);
    if (relay_socket != nullptr) AbortTcp(relay_socket);
}

void NativeDisconnect() {
    {
        const LockGuard hold(cloud->sessionLock);
        if (relay_socket != nullptr) CloseTcp(relay_socket);
        relay_socket = nullptr;
    }
    if (network_started) EndNetwork();
    network_started = false;
}

}  // namespace

const CloudCarrier kNativeCarrier = {
    .Connect = NativeConnect,
    .Abort = NativeAbort,
    .Disconnect = NativeDisconnect,
};

}  // namespace tarvik
