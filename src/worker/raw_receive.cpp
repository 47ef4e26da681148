#include "worker/raw_receive.h"

#include <cstring>
#include <utility>

#include "link/link_limits.h"
#include "link/packet_queue.h"
#include "link/raw_frame.h"
#include "objects/state_changes.h"
#include "platform/tick.h"
#include "support/log.h"
#include "support/memory.h"
#include "worker/result_delivery.h"
#include "worker/worker_limits.h"
#include "worker/worker_log.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kIdBytes = 4;  // of a result, most significant first
constexpr std::uint32_t kFirstLongId = 4096;

// ---- The receive thread ------------------------------------------------------------------------

// What a receive thread works on. It keeps both references while it runs: a callback of the
// application may last longer than the link.
struct Receiver {
    LinkRef link;
    Ref<ComPrimitive> cop;
};

bool MustStop(const LinkRecord& link, const ComPrimitive& cop) {
    return cop.abort.load() || !link.running.load();
}

// Deliberate: the comparison stops a thread that should receive one packet or more before it has
// received any, and never stops one that should receive none or any number.
bool HasReceivedEnough(const ComPrimitive& cop, std::int64_t received) {
    const SNUM32 wanted = cop.pCopCtrlData == nullptr ? 0 : cop.pCopCtrlData->NumReceiveCycles;
    return received < wanted && wanted >= 0;
}

// Null: none came in time, or the thread must stop.
PacketPtr NextPacket(LinkRecord* link, const ComPrimitive& cop) {
    DeviceQueues* device = link->Device();
    if (device == nullptr || !device->available || !device->rx.active) {
        // There is no queue to wait on.
        SleepMs(static_cast<std::uint32_t>(GetLinkLimits().wait_slice_ms));
        return nullptr;
    }
    const WaitFlags flags = {&device->available, &cop.abort, &link->running};
    return PacketPtr(FindPacket(&device->rx, {.filter = MatchType,
                                              .argument = {.type = kTypeRawc, .id = kNoTag},
                                              .remove = true,
                                              .timeout_ms = GetWorkerLimits().receive_poll_ms,
                                              .flags = &flags}));
}

void DeliverFrame(LinkRecord* link, ComPrimitive* cop, const RawFrameView& frame) {
    const ByteView data = frame.Data();
    const std::uint32_t id = frame.CanId();
    const auto length = static_cast<std::uint32_t>(kIdBytes + data.size);
    Tracked<std::uint8_t> bytes(static_cast<std::uint8_t*>(AllocateMem(length)));
    if (bytes == nullptr) return;
    for (std::uint32_t i = 0; i < kIdBytes; ++i) {
        bytes.get()[i] = static_cast<std::uint8_t>(id >> (24 - 8 * i));
    }
    std::memcpy(bytes.get() + kIdBytes, data.data, data.size);
    // Deliberate: the value decides what a long identifier is, so long ones below 4096 look short.
    const std::uint8_t rx_flag = id >= kFirstLongId ? 1 : 0;
    DeliverResult(link, cop, {0, 0, bytes.release(), length, false, rx_flag});
}

void ReceiveFrames(LinkRecord* link, ComPrimitive* cop) {
    std::int64_t received = 0;
    while (!MustStop(*link, *cop) && !HasReceivedEnough(*cop, received)) {
        const PacketPtr packet = NextPacket(link, *cop);
        if (packet == nullptr) continue;
        ++received;
        RECEIVER_LOG("   RAW: Received a packet");
        if (const auto frame = RawFrameView::Of(*packet)) DeliverFrame(link, cop, *frame);
    }
}

// Owns the reception mutex for a scope; false if it was not to be had in time.
class ReceptionHold {
public:
    explicit ReceptionHold(LinkRecord* link, std::int32_t timeout_ms = -1)
        : mutex_(link->reception_mutex),
          held_(OsMutexLock(mutex_, timeout_ms) != MutexWait::kTimeout) {}
    ~ReceptionHold() {
        if (held_) OsMutexUnlock(mutex_);
    }
    ReceptionHold(const ReceptionHold&) = delete;
    ReceptionHold& operator=(const ReceptionHold&) = delete;
    explicit operator bool() const { return held_; }

private:
    OsMutex* mutex_;
    bool held_;
};

// Does nothing if the reception was ended before its thread got here.
void BeginReception(LinkRecord* link, ComPrimitive* cop) {
    const ReceptionHold hold(link);
    if (cop->reception != Reception::kNotBegun) return;
    cop->reception = Reception::kOn;
    SwitchRawReception(link->Device(), true);
}

// Called by the thread, or on its behalf. Sends the switches that the thread has not sent yet, so
// that none of them follows its successor's.
void EndReception(LinkRecord* link, ComPrimitive* cop, std::int32_t timeout_ms = -1) {
    const ReceptionHold hold(link, timeout_ms);
    if (!hold || cop->reception == Reception::kOver) return;
    if (cop->reception == Reception::kNotBegun) SwitchRawReception(link->Device(), true);
    cop->reception = Reception::kOver;
    SwitchRawReception(link->Device(), false);
}

void CommReceiveFunc(void* argument) {
    auto* started = static_cast<Receiver*>(argument);
    const Receiver receiver = std::move(*started);
    DeleteTracked(started);
    LinkRecord* link = receiver.link.Get();
    ComPrimitive* cop = receiver.cop.Get();
    const CountThreadCalls count(&cop->receiver_calls);
    cop->receive_thread_id.store(OsCurrentThreadId());
    RECEIVER_LOG(" starting thread for CoP");
    BeginReception(link, cop);
    ReceiveFrames(link, cop);
    EndReception(link, cop);
    RECEIVER_LOG(" stopping");
}

// ---- The worker --------------------------------------------------------------------------------

// Null: no memory, or the system refused.
OsThread* StartThread(LinkRecord* link, ComPrimitive* cop) {
    auto* receiver =
        NewTracked<Receiver>(Receiver{LinkRef::Share(link), Ref<ComPrimitive>::Share(cop)});
    if (receiver == nullptr) return nullptr;
    OsThread* thread = OsThreadStart(CommReceiveFunc, receiver, "Tarvik CommReceiveFunc");
    if (thread == nullptr) DeleteTracked(receiver);  // otherwise the thread owns it
    return thread;
}

void AskToStop(LinkRecord* link, ComPrimitive* cop) {
    cop->abort.store(true);
    if (link->device != nullptr) WakeQueueWaiters(&link->device->rx);
}

void StopPredecessor(LinkRecord* link) {
    const Ref<ComPrimitive> earlier = link->raw_receive.Take();
    if (!earlier) return;
    Log(kLogTrace, "[%s]    stop CoP #%d thread", "CommThreadFunc",
        static_cast<int>(earlier->hCoP));
    AskToStop(link, earlier.Get());
    // On behalf of the thread, which may be inside a callback: its successor switches on after
    // this.
    EndReception(link, earlier.Get());
}

// ComPrimitives stay registered until the link ends; their threads need not.
void CloseEndedThreads(LinkRecord* link) {
    link->registry.VisitAll([](ComPrimitive& cop) {
        if (cop.receive_thread == nullptr || !OsThreadJoin(cop.receive_thread, 0)) return;
        OsThreadClose(std::exchange(cop.receive_thread, nullptr));
    });
}

std::uint32_t ThreadKey(const OsThread* thread) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(OsThreadHandle(thread)));
}

// True if the receive thread itself destructs the library, from inside a callback.
bool IsDestructing(const LinkRecord& link, const ComPrimitive& cop) {
    const std::uint32_t destructor = link.destructing_thread.load();
    return destructor != 0 && destructor == cop.receive_thread_id.load();
}

bool IsOutOfTime(const LinkRecord& link) {
    return link.destructing_thread.load() != 0 && TickMs() >= link.stop_deadline_ms.load();
}

// False: it has not ended in the time that PDUDestruct allows. A thread that calls PDUDestruct
// itself is not waited for.
bool AwaitEnd(const LinkRecord& link, const ComPrimitive& cop) {
    while (!IsDestructing(link, cop)) {
        if (OsThreadJoin(cop.receive_thread, GetWorkerLimits().join_slice_ms)) return true;
        if (IsOutOfTime(link)) return false;
    }
    return true;
}

}  // namespace

void StartRawReception(LinkRecord* link, ComPrimitive* cop) {
    WORKER_LOG("   RAW: Start receive thread");
    StopPredecessor(link);
    CloseEndedThreads(link);
    OsThread* thread = StartThread(link, cop);
    WORKER_LOG(" Created Thread handle 0x%p (CommReceiveFunc) for CoP #%u",
               thread == nullptr ? nullptr : OsThreadHandle(thread), cop->hCoP);
    if (thread == nullptr) {
        cop_error(link, cop, kErrorNothingReceived);
        return;
    }
    cop->has_receive_thread = true;
    cop->receive_thread = thread;
    if (link->raw_receive.Append(Ref<ComPrimitive>::Share(cop), ThreadKey(thread))) return;
    AskToStop(link, cop);  // its successor could not find it
    cop_error(link, cop, kErrorNothingReceived);
}

void StopRawReception(LinkRecord* link, ComPrimitive* cop) {
    Log(kLogTrace, "[%s]   stop CoP #%d thread", "CommThreadFunc", static_cast<int>(cop->hCoP));
    AskToStop(link, cop);
    if (cop->receive_thread == nullptr) return;
    if (!AwaitEnd(*link, *cop)) {
        WORKER_LOG("   Failed to stop thread");
        cop->receiver_calls.GiveUp();
        OsThreadTerminate(cop->receive_thread);
    }
    // On behalf of a thread that is inside PDUDestruct or did not end. One that was left to itself
    // may own the mutex.
    EndReception(link, cop, GetWorkerLimits().join_slice_ms);
}

}  // namespace tarvik
