#include "worker/comm_thread.h"

#include "comparam/comparams.h"
#include "link/fragmentation.h"
#include "link/packet.h"
#include "objects/com_primitive.h"
#include "objects/state_changes.h"
#include "support/cop_trace.h"
#include "support/log.h"
#include "worker/raw_receive.h"
#include "worker/raw_send.h"
#include "worker/send_recv.h"
#include "worker/worker_limits.h"
#include "worker/worker_log.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kMaxTesterPresentBytes = 32;

// An empty `message` switches the cyclic message off.
void SendTesterPresent(LinkRecord* link, std::uint32_t period_ms, ByteView message) {
    const TesterPresentWire fields = {
        .type = kTypeTspr, .length = 0, .period_ms = period_ms, .value = kTesterPresentValue};
    PacketPtr packet = BuildPacket(fields, message);
    FragSendPacket(link->Device(), packet);  // refuses a missing packet or dongle
}

void StartTesterPresent(LinkRecord* link, const ComPrimitive& cop) {
    const std::uint32_t period_ms = ReadComParam(kCpTesterPresentTime) / 1000;
    std::uint8_t message[kMaxTesterPresentBytes];
    const std::uint32_t length =
        ReadComParamBytes(kCpTesterPresentMessage, message, sizeof message);
    if (length == 0 || length > kMaxTesterPresentBytes) return;
    WORKER_LOG("   [CoP#%u] Enable TesterPresent with %u byte every %u ms", cop.hCoP, length,
               period_ms);
    SendTesterPresent(link, period_ms, {message, length});
}

void StartComm(LinkRecord* link, ComPrimitive* cop) {
    if (link->rawMode) return ExecuteRawStartComm(link, *cop);
    UpdateCopState(link, cop, PDU_COPST_FINISHED);
    SetLinkState(link, PDU_CLLST_COMM_STARTED);
    StartTesterPresent(link, *cop);
}

void StopComm(LinkRecord* link, ComPrimitive* cop) {
    UpdateCopState(link, cop, PDU_COPST_FINISHED);
    SetLinkState(link, PDU_CLLST_ONLINE);
    WORKER_LOG("   [CoP#%u] Disable TesterPresent", cop->hCoP);
    SendTesterPresent(link, 0, {});
}

void Execute(LinkRecord* link, ComPrimitive* cop) {
    switch (cop->CoPType) {
        case PDU_COPT_STARTCOMM:
            StartComm(link, cop);
            break;
        case PDU_COPT_STOPCOMM:
            StopComm(link, cop);
            break;
        case PDU_COPT_UPDATEPARAM:
        case PDU_COPT_RESTORE_PARAM:
            UpdateCopState(link, cop, PDU_COPST_FINISHED);
            break;
        case PDU_COPT_SENDRECV:
            ExecuteSendRecv(link, cop);
            break;
        default:
            break;  // not reported to the application
    }
}

void ReleaseExecuted(LinkRecord* link, const ComPrimitive& cop) {
    Log(kLogTrace, "[%s] free CoP #%d", "CommThreadFunc", static_cast<int>(cop.hCoP));
    TraceCopFree(TraceIds(cop), cop.state.load());
    if (!link->registry.Remove(cop.hCoP)) {
        WORKER_LOG(" Failed to dequeue id %u from CoP queue", cop.hCoP);
    }
}

void CleanUp(LinkRecord* link) {
    Log(kLogTrace, "[%s] cleanup", "CommThreadFunc");
    link->raw_receive.Take();
    while (const Ref<ComPrimitive> cop = link->registry.First()) {
        if (cop->has_receive_thread) StopRawReception(link, cop.Get());
        if (!link->registry.Remove(cop->hCoP)) {
            WORKER_LOG(" Failed to dequeue from CoP queue");
            return;
        }
        link->pending.Remove(cop->hCoP);
        Log(kLogTrace, "[%s]   free CoP #%d", "CommThreadFunc", static_cast<int>(cop->hCoP));
    }
}

void CommThreadFunc(void* argument) {
    const LinkRef link = LinkRef::Adopt(static_cast<LinkRecord*>(argument));
    const CountThreadCalls count(&link->worker_calls);
    Log(kLogTrace, "[%s] starting", __func__);
    while (link->running.load()) {
        const Ref<ComPrimitive> cop =
            link->pending.WaitForNext(GetWorkerLimits().request_poll_ms, link->running);
        if (!cop) continue;
        cop->CllTag = link->CllTag;
        Execute(link.Get(), cop.Get());
        if (!cop->has_receive_thread) ReleaseExecuted(link.Get(), *cop);
    }
    CleanUp(link.Get());
    Log(kLogTrace, "[%s] exiting", __func__);
}

}  // namespace

bool StartWorker(const char* function, LinkRecord* link) {
    LinkRef worker_reference = LinkRef::Share(link);
    link->thread = OsThreadStart(CommThreadFunc, link, "Tarvik CommThreadFunc");
    if (link->thread != nullptr) static_cast<void>(worker_reference.Detach());  // the thread's now
    Log(kLogTrace, "[%s] Created Thread handle 0x%p (CommThreadFunc) for LogicalLink #%u", function,
        link->thread == nullptr ? nullptr : OsThreadHandle(link->thread), link->hCLL);
    return link->thread != nullptr;
}

}  // namespace tarvik
