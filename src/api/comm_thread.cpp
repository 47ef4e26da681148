#include <cstring>

#include "api/com_primitives.h"
#include "api/comparams.h"
#include "api/links.h"
#include "api/raw_receive.h"
#include "api/raw_send.h"
#include "api/send_recv.h"
#include "api/worker_log.h"
#include "link/fragmentation.h"
#include "link/packet.h"
#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kPollMs = 100;
constexpr std::uint32_t kMaxTesterPresentBytes = 32;
constexpr std::uint32_t kTesterPresentHeader = 16;
constexpr std::uint32_t kTesterPresentValue = 0x700;

// `message` of length 0 switches the cyclic message off.
void SendTesterPresent(LinkRecord* link, std::uint32_t period_ms, ByteView message) {
    if (link->device == nullptr) return;
    PacketPtr packet =
        MakePacket(kTypeTspr, kTesterPresentHeader + static_cast<std::uint32_t>(message.size));
    if (packet == nullptr) return;
    packet->SetU32(8, period_ms);
    packet->SetU32(12, kTesterPresentValue);
    if (message.size > 0) {
        std::memcpy(packet->Bytes() + kTesterPresentHeader, message.data, message.size);
    }
    FragSendPacket(link->device, packet);
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
            break;  // taken and released without a trace for the application
    }
}

void ReleaseExecuted(LinkRecord* link, ComPrimitive* cop) {
    Log(kLogTrace, "[%s] free CoP #%d", "CommThreadFunc", static_cast<int>(cop->hCoP));
    TraceCopFree({cop->hMod, cop->hCLL, cop->hCoP}, cop->state.load());
    if (RemoveItem(&link->registry, cop->hCoP) == nullptr) {
        WORKER_LOG(" Failed to dequeue id %u from CoP queue", cop->hCoP);
    }
    FreeComPrimitive(cop);
}

void CleanUp(LinkRecord* link) {
    Log(kLogTrace, "[%s] cleanup", "CommThreadFunc");
    TakeItem(&link->raw_receive);
    while (auto* cop = static_cast<ComPrimitive*>(FirstItem(&link->registry))) {
        if (cop->has_receive_thread) StopRawReception(link, cop);
        if (RemoveItem(&link->registry, cop->hCoP) == nullptr) {
            WORKER_LOG(" Failed to dequeue from CoP queue");
            return;
        }
        RemoveItem(&link->pending, cop->hCoP);
        Log(kLogTrace, "[%s]   free CoP #%d", "CommThreadFunc", static_cast<int>(cop->hCoP));
        FreeComPrimitive(cop);
    }
}

}  // namespace

void CommThreadFunc(void* argument) {
    const LinkRef link(static_cast<LinkRecord*>(argument));
    Log(kLogTrace, "[%s] starting", __func__);
    while (link->running.load()) {
        auto* cop = static_cast<ComPrimitive*>(WaitForItem(&link->pending, kPollMs, link->running));
        if (cop == nullptr) continue;
        cop->CllTag = link->CllTag;
        Execute(link.Get(), cop);
        if (!cop->has_receive_thread) ReleaseExecuted(link.Get(), cop);
    }
    CleanUp(link.Get());
    Log(kLogTrace, "[%s] exiting", __func__);
}

}  // namespace tarvik
