// Dongles behind a relay that is reached over a network.
#include <algorithm>
#include <utility>

#include "link/packet_counters.h"
#include "platform/thread.h"
#include "platform/tick.h"
#include "support/config.h"
#include "support/peer_limits.h"
#include "transport/cloud/cloud_connection.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/cloud_log.h"
#include "transport/cloud/cloud_packets.h"
#include "transport/cloud/cloud_state.h"
#include "transport/cloud/secure_channel.h"
#include "transport/identification.h"
#include "transport/life_cycle.h"
#include "transport/transport.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kCloudTransportId = 0;

// ---------------------------------------------------------------- start and end

void CloudInit() {
    if (cloud->initialized.exchange(true)) return;
    DeviceQueues& queues = cloud->queues;
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION for CloudQueues at 0x%p", __func__,
        queues.device_lock.Address());
    InitializeQueue(&queues.rx);
    InitializeQueue(&queues.tx);
    queues.mtu = kCloudMtu;
    {
        const LockGuard hold(cloud->address_lock);
        cloud->last_addressed = {};
        cloud->addressPending = false;
    }
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION statsLock at 0x%p", __func__,
        PacketCountersLockAddress());
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION sessionLock at 0x%p", __func__,
        cloud->sessionLock.Address());
    queues.available = true;
    CloudSecClearSession();
}

void CloudStart() {
    if (!CheckInitialized(cloud->initialized, __func__, kCannotStart)) return;
    CloudLog("[Cloud] ---CONNECTING---\r\n");
    const LockGuard hold(cloud->start_lock);
    if (!config.useCloud || cloud->running) return;

    cloud->connectRequested = true;
    cloud->quitRequested = false;
    cloud->connState = ConnState::kIdle;
    cloud->linkUp = false;
    cloud->receiver_left = false;
    cloud->connection_thread =
        OsThreadStart(ConnectionThread, nullptr, "Tarvik CloudConnectThread");
    if (cloud->connection_thread == nullptr) {
        CloudLog("[Cloud] Failed to start connect thread\r\n");
        return;
    }
    cloud->running = true;
}

// A callback that reports a new dongle runs on the receive thread, and may end the library. This
// thread cannot be waited for; it ends by itself once the callback has returned.
void LeaveIfReceiver() {
    if (cloud->receiver_id != OsCurrentThreadId()) return;
    cloud->receiver_id = 0;
    cloud->receiver_left = true;
}

void CloudStop() {
    LeaveIfReceiver();
    const LockGuard hold(cloud->start_lock);
    OsThread* thread = std::exchange(cloud->connection_thread, nullptr);
    if (thread == nullptr) return;
    cloud->running = false;
    SetAndAnnounce(&cloud->quitRequested);
    AbortLink();
    CloudLog("[Cloud] ---DISCONNECT WAIT---\r\n");
    OsThreadJoin(thread, -1);
    LogAndCloseThread(thread, __func__, "CloudConnectThread");
    CloudLog("[Cloud] ---DISCONNECTED---\r\n");
}

void CloudDeinit() {
    if (!cloud->initialized) return;
    CloudStop();
    DeviceQueues& queues = cloud->queues;
    queues.available = false;
    CloudSecClearSession();
    FreeQueue(&queues.rx);
    FreeQueue(&queues.tx);
    // The locks live as long as the library; only their use ends here.
    Log(kLogTrace, "[%s] Deleted CRITICAL_SECTION for CloudQueues at 0x%p", __func__,
        queues.device_lock.Address());
    Log(kLogTrace, "[%s] Deleted CRITICAL_SECTION statsLock at 0x%p", __func__,
        PacketCountersLockAddress());
    Log(kLogTrace, "[%s] Deleted CRITICAL_SECTION sessionLock at 0x%p", __func__,
        cloud->sessionLock.Address());
    cloud->initialized = false;
}

// ---------------------------------------------------------------- discovery

bool AwaitLink(std::uint64_t limit_ms) {
    const std::uint64_t deadline = TickMs() + limit_ms;
    const LockGuard hold(cloud->change_lock);
    for (;;) {
        if (cloud->linkUp) return true;
        if (cloud->quitRequested || TickMs() >= deadline) return false;
        cloud->changed.Wait(cloud->change_lock, GetCloudLimits().link_poll_ms);
    }
}

void ReportDongle(const Packet& packet, ReportDevice report, void* context) {
    const DeviceReport record = {kCloudTransportId, LoginFromPacket(packet), &cloud->queues};
    CloudLog("[Cloud] CloudUpdateDevices received: %s\r\n", LoginText(record.login).text);
    if (report != nullptr) report(context, record);
}

// Ends when no login has come for `timeout_ms`; for the first one it waits twice as long. Logins
// that keep coming do not prolong it without limit: later ones are reported outside a scan.
void CollectLogins(std::uint32_t timeout_ms, ReportDevice report, void* context) {
    std::uint64_t since = TickMs();
    std::uint64_t limit = std::uint64_t{2} * timeout_ms;
    const std::uint64_t end =
        since + std::uint64_t{3} * timeout_ms + GetPeerLimits().scan_overtime_ms;
    while (!cloud->quitRequested) {
        const std::uint64_t now = TickMs();
        const std::uint64_t passed = now - since;
        if (passed > limit || now > end) return;
        const std::uint64_t wait =
            std::min<std::uint64_t>(GetCloudLimits().login_wait_ms, limit - passed + 1);
        const PacketPtr login = WaitForLogin(&cloud->queues, static_cast<std::uint32_t>(wait),
                                             &cloud->quitRequested, nullptr);
        if (login == nullptr || login->type != kTypeLogn) continue;
        ReportDongle(*login, report, context);
        since = TickMs();
        limit = timeout_ms;
    }
}

bool CloudUpdateDevices(std::uint32_t timeout_ms, ReportDevice report, void* context) {
    if (!CheckInitialized(cloud->initialized, __func__)) return false;
    if (!config.useCloud || !cloud->running) return false;
    CloudLog("[Cloud] CloudUpdateDevices: waiting for link\r\n");
    const std::uint64_t link_limit_ms = std::uint64_t{4} * timeout_ms;
    if (!AwaitLink(link_limit_ms)) {
        CloudLog("[Cloud] CloudUpdateDevices: no link after %d ms\r\n",
                 static_cast<int>(link_limit_ms));
        return false;
    }
    CloudLog("[Cloud] CloudUpdateDevices: scanning for devices\r\n");
    SendIdentify(&cloud->queues);
    CollectLogins(timeout_ms, report, context);
    CloudLog("[Cloud] CloudUpdateDevices done\r\n");
    return true;
}

bool CloudAddressDevice(const std::uint8_t* mac) {
    if (!CheckInitialized(cloud->initialized, __func__)) return false;
    CloudLog("[Cloud] CloudAddressDevice\r\n");
    const LockGuard hold(cloud->address_lock);
    cloud->last_addressed = AddressFromMac(mac);
    cloud->addressPending = true;
    SendAddress(cloud->last_addressed);
    return true;
}

}  // namespace

const Transport kCloudTransport = {
    .name = "Cloud",
    .id = kCloudTransportId,
    .interface_name = "Network",
    .connection_type = "Cloud",
    .module_type_id = 1,
    .mtu = 0,
    .Init = CloudInit,
    .Deinit = CloudDeinit,
    .Start = CloudStart,
    .Stop = CloudStop,
    .UpdateDevices = CloudUpdateDevices,
    .AddressDevice = CloudAddressDevice,
    .Disconnect = nullptr,
    .update_timeout_ms = 500,
    .connect_timeout_ms = 5000,
};

}  // namespace tarvik
