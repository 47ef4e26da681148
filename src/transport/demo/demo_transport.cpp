// A dongle inside the library. It identifies itself and answers every communication request with
// "the control unit did not answer in time".
#include <atomic>
#include <utility>

#include "link/packet.h"
#include "link/packet_counters.h"
#include "link/packet_queue.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/thread.h"
#include "platform/tick.h"
#include "support/config.h"
#include "support/log.h"
#include "transport/demo/demo_limits.h"
#include "transport/identification.h"
#include "transport/life_cycle.h"
#include "transport/transport.h"

namespace tarvik {

namespace {

struct DemoState {
    std::atomic<bool> initialized{false};
    std::atomic<bool> running{false};  // the thread runs while it is set
    DeviceQueues queues;
    OsLock session_lock;  // held while the thread is started and while it is awaited
    OsThread* thread = nullptr;
};
Immortal<DemoState> state;

constexpr LoginWire kDemoLogin = {
    .type = kTypeLogn,
    .length = sizeof(LoginWire),
    .reserved_8 = {},
    .mac = {'M', 'A', 'C', 'A', 'D', 'D'},
    .reserved_18 = {},
    // Deliberate: the module list does not accept this model. A scan names the demo device and then
    // ignores it.
    .model = 0,
    .reserved_24 = {},
    .firmware_version = "1.5.0.62-95aec0c",
    .device_name = "Demo Device, nonfunctional",
    .build_time = "17:24:06",
    .build_date = "Mar  2 2026",
    .reserved_128 = {},
};

PacketPtr MakeDemoResponse(std::uint32_t req_id) {
    return BuildPacket(CommResponseWire{.type = kTypeCres,
                                        .length = sizeof(CommResponseWire),
                                        .wait_time = kWaitTimeNoAnswer,
                                        .data_length = 0,
                                        .req_id = req_id});
}

// Null: no answer.
PacketPtr AnswerTo(const Packet& packet) {
    static constexpr char kFunction[] = "DummyTxThreadFunc";
    if (packet.type == kTypeIden) {
        Log(kLogTrace, "[%s] Answering as demo device.", kFunction);
        return BuildPacket(kDemoLogin);
    }
    if (packet.type != kTypeCreq) return nullptr;
    const auto request = packet.Fields<CommRequestWire>();
    if (!request) return nullptr;
    Log(kLogTrace, "[%s] Received comm request #%u. respond with timeout.", kFunction,
        request->req_id);
    return MakeDemoResponse(request->req_id);
}

void DummyTxThreadFunc(void*) {
    while (state->running) {
        const PacketPtr packet = TakePacket(&state->queues.tx, GetDemoLimits().transmit_poll_ms);
        if (!packet) continue;
        if (PacketPtr answer = AnswerTo(*packet)) {
            // Deliberate: bypasses EnqueueReceivedPacket, so that the answer is neither tagged nor
            // traced.
            AppendPacket(&state->queues.rx, answer, kNoTag);
        }
        CountSentPacket(packet->length);
    }
}

void DummyInit() {
    if (state->initialized) return;
    DeviceQueues& queues = state->queues;
    queues.available = true;
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION for DummyQueues at 0x%p", __func__,
        queues.device_lock.Address());
    InitializeQueue(&queues.rx);
    InitializeQueue(&queues.tx);
    Log(kLogTrace, "[%s] Initialized CRITICAL_SECTION DummySessionLock at 0x%p", __func__,
        state->session_lock.Address());
    state->initialized = true;
}

void DummyStart() {
    Log(kLogTrace, "[%s] Start", __func__);
    if (!CheckInitialized(state->initialized, __func__, kCannotStart)) return;
    LockGuard hold(state->session_lock);
    if (!config.dummyDevice || state->running) return;

    state->thread = StartThreadWithFlag(&state->running, DummyTxThreadFunc, "Tarvik DummyTxThread");
    if (state->thread == nullptr) {
        ConsolePrint("Failed to create TX thread: %i\n", OsLastError());
        return;
    }
    Log(kLogTrace, "[%s] Done", __func__);
}

void DummyStop() {
    LockGuard hold(state->session_lock);
    if (!state->running.exchange(false)) return;
    WakeQueueWaiters(&state->queues.tx);
    OsThread* thread = std::exchange(state->thread, nullptr);
    if (thread != nullptr) AwaitAndCloseThread(thread, -1, __func__, "DummyTxThread");
    Log(kLogTrace, "[%s] Done", __func__);
}

void DummyDeinit() {
    if (!state->initialized) return;
    DummyStop();
    DeviceQueues& queues = state->queues;
    queues.available = false;
    FreeQueue(&queues.rx);
    FreeQueue(&queues.tx);
    // The locks themselves live as long as the library; only their use ends here.
    Log(kLogTrace, "[%s] Deleted CRITICAL_SECTION for DummyQueues", __func__);
    Log(kLogTrace, "[%s] Deleted CRITICAL_SECTION DummySessionLock", __func__);
    state->initialized = false;
    Log(kLogTrace, "[%s] Done", __func__);
}

bool DummyUpdateDevices(std::uint32_t timeout_ms, ReportDevice report, void* context) {
    if (!CheckInitialized(state->initialized, __func__)) return false;
    if (!state->running) return false;
    ConsolePrint("[Dummy] DummyUpdateDevices: scanning for devices\r\n");

    SendIdentify(&state->queues);
    const std::uint64_t deadline = TickMs() + timeout_ms;
    while (state->running && TickMs() < deadline) {
        const PacketPtr login =
            WaitForLogin(&state->queues, GetDemoLimits().login_wait_ms, nullptr, &state->running);
        if (login) ReportLogin(kDummyTransport, *login, &state->queues, report, context);
    }

    ConsolePrint("[Dummy] DummyUpdateDevices done\r\n");
    return true;
}

}  // namespace

const Transport kDummyTransport = {
    .name = "Dummy",
    .id = 2,
    .interface_name = "USB",
    .connection_type = "USB",
    .module_type_id = 1,
    .mtu = 0,
    .Init = DummyInit,
    .Deinit = DummyDeinit,
    .Start = DummyStart,
    .Stop = DummyStop,
    .UpdateDevices = DummyUpdateDevices,
    .AddressDevice = nullptr,
    .Disconnect = nullptr,
    .update_timeout_ms = 100,
    .connect_timeout_ms = 500,
};

}  // namespace tarvik
