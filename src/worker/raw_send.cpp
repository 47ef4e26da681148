#include "worker/raw_send.h"

#include "link/raw_frame.h"
#include "support/log.h"
#include "worker/worker_log.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kIdBytes = 4;  // of the request, most significant first; data follows

void SendFrame(LinkRecord* link, const ComPrimitive& cop) {
    const std::uint8_t* request = cop.pCoPData;
    link->rawCanId = std::uint32_t{request[0]} << 24 | std::uint32_t{request[1]} << 16 |
                     std::uint32_t{request[2]} << 8 | request[3];
    // Deliberate: the count is kept in one byte, so it is taken modulo 256.
    const ByteView data = {request + kIdBytes,
                           static_cast<std::uint8_t>(cop.CoPDataSize - kIdBytes)};
    const HexText bytes(data.data, data.size);
    WORKER_LOG("   RAW: Send CAN frame 0x%04X %s %s", link->rawCanId,
               cop.extended_frame ? "(extended)" : "", bytes.c_str());
    SendRawFrame(link->Device(), link->rawCanId, data);
}

}  // namespace

void ExecuteRawStartComm(LinkRecord* link, const ComPrimitive& cop) {
    const PDU_COP_CTRL_DATA* control = cop.pCopCtrlData;
    if (control == nullptr) return;
    // Deliberate: one frame, however many cycles are asked for.
    if (control->NumSendCycles >= 1 && cop.CoPDataSize >= kIdBytes) SendFrame(link, cop);
    // Deliberate: only logged; it is PDU_COPT_SENDRECV that receives.
    if (control->NumReceiveCycles >= 1) WORKER_LOG("   RAW: Start receiving");
}

}  // namespace tarvik
