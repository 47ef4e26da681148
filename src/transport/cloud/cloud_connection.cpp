#include "transport/cloud/cloud_connection.h"

#include <utility>

#include "link/fragmentation.h"
#include "platform/tick.h"
#include "support/config.h"
#include "transport/cloud/cloud_carrier.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/cloud_packets.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/secure_channel.h"

namespace tarvik {
namespace {

constexpr char kThreadName[] = "ConnectionThread";
constexpr std::uint32_t kRetryLimit = 5;

const CloudCarrier& Carrier() { return config.useWebsocket ? kWebSocketCarrier : kNativeCarrier; }

}  // namespace

void AbortLink() {
    Carrier().Abort();
    WakeQueueWaiters(&cloud->queues.tx);
}

namespace {

// ---------------------------------------------------------------- the end of a connection

bool HasEnded(OsThread* thread, std::int32_t timeout_ms) {
    return thread == nullptr || OsThreadJoin(thread, timeout_ms);
}

bool ReceiverHasEnded() {
    return cloud->receiver_left || HasEnded(cloud->receive_thread, GetCloudLimits().thread_end_ms);
}

void CloseThread(OsThread** thread) {
    OsThread* const ended = std::exchange(*thread, nullptr);
    if (ended != nullptr) OsThreadClose(ended);
}

void StopThreads() {
    cloud->connState = ConnState::kDisconnecting;
    AbortLink();
    while (!ReceiverHasEnded()) {
    }
    HasEnded(cloud->transmit_thread, -1);
    CloseThread(&cloud->receive_thread);
    CloseThread(&cloud->transmit_thread);
    cloud->connState = ConnState::kIdle;
}

void Disconnect() {
    Carrier().Disconnect();
    CloudSecClearSession();
    FragForget(&cloud->queues);
}

// ---------------------------------------------------------------- a connection attempt

void DropAll(PacketQueue* queue, std::uint32_t type) {
    Packet* packet = nullptr;
    do {
        packet = QueueFindFilterInternal(queue, 0, MatchType, {type, kNoTag}, true);
        FreeMem(packet);
    } while (packet != nullptr);
}

// Drops what an earlier connection left. The channel would take an old answer for the answer to its
// own message, and the relay would do the same with an old message that could not be sent. And an
// identification for the old session must not be sent before the new one can seal it.
void DropHandshakeLeftovers() {
    DropAll(&cloud->queues.rx, kTypeNhs2);
    DropAll(&cloud->queues.rx, kTypeDeva);
    DropAll(&cloud->queues.tx, kTypeNhs1);
    DropAll(&cloud->queues.tx, kTypeDevi);
}

bool IsAccepted(std::uint32_t status) {
    switch (status) {
        case kDeviceRegistered:
            CloudLog("[Cloud] Device accepted by server\n");
            return true;
        case kDeviceIsolated:
            CloudLog("[Cloud] Device running in ISOLATED mode - limited functionality\n");
            return true;
        case kDeviceRejected:
            CloudLog("[Cloud] Device rejected by server\n");
            return false;
        default:
            return true;
    }
}

bool SecureLink() {
    if (config.serverPublicKey[0] == '\0') {
        CloudLog("[Cloud] ERROR: serverPublicKey not configured; Noise is required\n");
        return false;
    }
    CloudLog("[Cloud] Using Noise-like handshake...\n");
    if (!CloudSecLoadIdentity()) {
        CloudLog("[Cloud] Failed to load device identity\n");
        return false;
    }
    if (!CloudSecHandshake(&cloud->queues, &cloud->quitRequested)) {
        CloudLog("[Cloud] Handshake failed\n");
        return false;
    }
    std::uint32_t status = 0;
    if (!CloudSecIdentify(&cloud->queues, &status, &cloud->quitRequested)) {
        CloudLog("[Cloud] Device identification failed\n");
        return false;
    }
    return IsAccepted(status);
}

void AddressAgain() {
    const LockGuard hold(cloud->address_lock);
    if (cloud->addressPending) SendAddress(cloud->last_addressed);
}

void ForgetAddress() {
    const LockGuard hold(cloud->address_lock);
    cloud->last_addressed = {};
    cloud->addressPending = false;
}

bool Connect() {
    cloud->linkUp = false;
    CloudSecClearSession();
    DropHandshakeLeftovers();
    return Carrier().Connect() && SecureLink();
}

void AttemptConnection(std::uint32_t* retries) {
    if (Connect()) {
        CloudLog("[Cloud] Handshake complete, starting communication threads\n");
        CloudSendLogin();
        AddressAgain();
        CloudLog("Login done\n");
        CloudLog("[Cloud] Connected\r\n");
        ForgetAddress();
        cloud->connState = ConnState::kConnected;
        SetAndAnnounce(&cloud->linkUp);
        *retries = 0;
        return;
    }
    StopThreads();
    Disconnect();
    if (*retries > kRetryLimit) {
        CloudLog("[Cloud] Failed, waiting for disconnect\r\n");
        cloud->connState = ConnState::kFailed;
    } else {
        CloudLog("[Cloud] Connect failed, retry\r\n");
    }
    ++*retries;
}

// ---------------------------------------------------------------- the states

// Each makes one step. False: the thread ends.

bool StepIdle() {
    if (cloud->quitRequested) return false;
    if (cloud->connectRequested) {
        CloudLog("[Cloud] Connecting...\r\n");
        cloud->connState = ConnState::kConnecting;
    }
    return true;
}

bool StepConnecting(std::uint32_t* retries) {
    if (cloud->quitRequested) return false;
    if (!cloud->connectRequested) {
        CloudLog("[Cloud] Cancel connect\r\n");
        cloud->connState = ConnState::kIdle;
        return true;
    }
    AttemptConnection(retries);
    return true;
}

// Null: the connection stays up.
const char* ReasonToDisconnect() {
    if (!cloud->connectRequested) return "[Cloud] Disconnecting\r\n";
    if (HasEnded(cloud->transmit_thread, 0)) {
        return "[Cloud] TxThread exited. Reconnecting.\r\n";
    }
    if (HasEnded(cloud->receive_thread, 0)) return "[Cloud] RxThread exited. Reconnecting.\r\n";
    return nullptr;
}

bool StepConnected() {
    if (cloud->quitRequested) {
        CloudLog("[Cloud] Quit requested\r\n");
        cloud->connectRequested = false;
    }
    const char* reason = ReasonToDisconnect();
    if (reason == nullptr) return true;
    CloudLog("%s", reason);
    // Before the abort, so that the threads that it wakes see that they should end.
    cloud->connState = ConnState::kDisconnecting;
    AbortLink();
    return true;
}

bool StepFailed() {
    if (cloud->quitRequested) return false;
    if (!cloud->connectRequested) cloud->connState = ConnState::kIdle;
    return true;
}

bool StepDisconnecting() {
    if (!HasEnded(cloud->transmit_thread, GetCloudLimits().thread_end_ms)) {
        CloudLog("[Cloud] Waiting for CloudTxThread to exit\r\n");
        return true;
    }
    if (!ReceiverHasEnded()) {
        CloudLog("[Cloud] Waiting for CloudRxThread to exit\r\n");
        return true;
    }
    CloseCarrierThread(&cloud->transmit_thread, kThreadName, "CloudTxThread");
    CloseCarrierThread(&cloud->receive_thread, kThreadName, "CloudRxThread");
    Disconnect();
    CloudLog("[Cloud] Threads exited. Done.\r\n");
    cloud->connState = ConnState::kIdle;
    return true;
}

bool Step(std::uint32_t* retries) {
    switch (cloud->connState.load()) {
        case ConnState::kIdle:
            return StepIdle();
        case ConnState::kConnecting:
            return StepConnecting(retries);
        case ConnState::kConnected:
            return StepConnected();
        case ConnState::kFailed:
            return StepFailed();
        case ConnState::kDisconnecting:
            return StepDisconnecting();
    }
    return false;
}

// A request to quit cuts it short.
void PauseBetweenSteps() {
    const std::uint64_t deadline =
        TickMs() + static_cast<std::uint32_t>(GetCloudLimits().step_pause_ms);
    const LockGuard hold(cloud->change_lock);
    for (;;) {
        const std::uint64_t now = TickMs();
        if (cloud->quitRequested || now >= deadline) return;
        cloud->changed.Wait(cloud->change_lock, static_cast<std::int32_t>(deadline - now));
    }
}

}  // namespace

void ConnectionThread(void*) {
    std::uint32_t retries = 0;  // failures in a row
    while (Step(&retries))
        PauseBetweenSteps();
    CloudLog("[Cloud] Quit requested\r\n");
}

}  // namespace tarvik
