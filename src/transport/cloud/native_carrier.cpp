// Packets on a TCP stream, one behind the other.
#include "platform/tick.h"
#include "support/config.h"
#include "transport/cloud/cloud_carrier.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/cloud_traffic.h"
#include "transport/cloud/server_address.h"
#include "transport/cloud/tcp_lookup.h"
#include "transport/cloud/tcp_socket.h"

namespace tarvik {

static constexpr char kRxName[] = "RxThreadFunc";
static constexpr char kTxName[] = "TxThreadFunc";
static constexpr std::int32_t kReadWaitMs = 100;
static constexpr std::uint32_t kIncompletePauseMs = 5;
static constexpr std::uint32_t kInvalidPauseMs = 100;

// Set and cleared by the connection thread, under sessionLock; the threads of the connection, which
// come and go while it is set, use it without.
static TcpSocket* relay_socket = nullptr;
static bool network_started = false;  // the connection thread's

static bool IsDisconnecting() { return cloud->connState == ConnState::kDisconnecting; }

// ---------------------------------------------------------------- receiving

// Bytes that cannot be taken are left; the thread sleeps instead of looking at them again and
// again. False: the peer is gone, so that nothing more can follow them.
static bool LeaveBytes(std::uint32_t pause_ms) {
    if (TcpPeerEnded(relay_socket)) return false;
    SleepMs(pause_ms);
    return true;
}

// Deliberate: a packet of which not all is there yet ends the connection, no second read is made.
static bool ReceivePacket(std::uint32_t length) {
    PacketPtr packet(static_cast<Packet*>(AllocateMem(length)));
    if (packet == nullptr) return false;
    if (ReadTcp(relay_socket, packet->Bytes(), length) != static_cast<int>(length)) return false;
    DispatchCloudPacket(std::move(packet));
    return true;
}

// False: the connection cannot go on.
static bool ReceiveOnce() {
    switch (WaitForTcpData(relay_socket, kReadWaitMs)) {
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
    if (peeked < static_cast<int>(sizeof header)) return LeaveBytes(kIncompletePauseMs);
    const std::uint32_t length = LoadU32(header + 4);
    // Deliberate: such a header is never taken, so that the next look finds it again.
    if (length < MIN_PKT_SIZE) return LeaveBytes(kInvalidPauseMs);
    return length <= MAX_PKT_SIZE && ReceivePacket(length);
}

static void RxThreadFunc(void*) {
    BeginReceiving();
    while (GoesOnReceiving()) {
        if (!ReceiveOnce()) break;
    }
    EndReceiving();
    if (IsDisconnecting()) Log(kLogTrace, "[%s] not online anymore. exiting.", kRxName);
}

// ---------------------------------------------------------------- transmitting

static void TxThreadFunc(void*) {
    while (!IsDisconnecting()) {
        PacketPtr packet = NextCloudPacket();
        if (packet == nullptr) continue;
        if (!SendTcp(relay_socket, packet->Bytes(), packet->length)) {
            PutBackCloudPacket(std::move(packet));
            break;
        }
    }
    if (IsDisconnecting()) Log(kLogTrace, "[%s] not online anymore. exiting.", kTxName);
}

// ---------------------------------------------------------------- connecting

static bool ReadAddress(ServerAddress* address) {
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

static TcpSocket* ConnectToRelay(const ServerAddress& address) {
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

static bool StartThreads() {
    cloud->receive_thread =
        StartCarrierThread(RxThreadFunc, "Tarvik CloudRxThread", kRxName, "NativeConnect");
    if (cloud->receive_thread == nullptr) {
        CloudLog("[Cloud] Failed to create RX thread\n");
        return false;
    }
    cloud->transmit_thread =
        StartCarrierThread(TxThreadFunc, "Tarvik CloudTxThread", kTxName, "NativeConnect");
    if (cloud->transmit_thread == nullptr) {
        CloudLog("[Cloud] Failed to create TX thread\n");
        return false;
    }
    return true;
}

static bool NativeConnect() {
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
    return StartThreads();
}

static void NativeAbort() {
    const LockGuard hold(cloud->sessionLock);
    if (relay_socket != nullptr) AbortTcp(relay_socket);
}

static void NativeDisconnect() {
    {
        const LockGuard hold(cloud->sessionLock);
        if (relay_socket != nullptr) CloseTcp(relay_socket);
        relay_socket = nullptr;
    }
    if (network_started) EndNetwork();
    network_started = false;
}

const CloudCarrier kNativeCarrier = {
    .Connect = NativeConnect,
    .Abort = NativeAbort,
    .Disconnect = NativeDisconnect,
};

}  // namespace tarvik
