#pragma once

#include <cstddef>
#include <cstdint>

// The ComPrimitive trace: one JSON object per line, one function per event. Every function may be
// called from any thread and does nothing while the trace is off.
namespace tarvik {

// Starts a session with its own file, unless one is running or the environment forbids it.
void StartCopTrace();
// Writes log_stop, waits until the flusher has written the buffered lines, closes the file.
void StopCopTrace();
bool CopTraceActive();

struct TraceCop {
    std::uint32_t hMod, hCLL, hCoP;
};

void TraceCopStart(const TraceCop& cop, std::uint32_t copType, const void* tx, std::uint32_t tx_len,
                   std::uint32_t numSend, std::uint32_t numRecv);
struct TraceSendRecvMeta {
    bool raw;
    std::uint32_t reqAddrMode;
    std::uint32_t canFuncReqId, canFuncReqFormat;
    std::uint32_t canPhysReqId, canPhysReqFormat;
    std::uint32_t canRespUSDTId, canRespUSDTFormat;
    std::uint32_t rc78;
};
void TraceCopSendRecvMeta(const TraceCop& cop, const TraceSendRecvMeta& meta);
struct TraceExpectedResponse {
    std::uint32_t acc, type;
    const void* pattern;
    const void* mask;
    std::uint32_t mask_pattern_len;  // of both
    const std::uint32_t* uniq;
    std::uint32_t uniq_count;
};
// `item(context, index)` returns one of the `count` expected responses. It is called in order.
void TraceCopExpectedResponses(const TraceCop& cop, std::uint32_t count,
                               TraceExpectedResponse (*item)(const void* context,
                                                             std::uint32_t index),
                               const void* context);
void TraceCopEcuCandidate(const TraceCop& cop, std::uint32_t idx, std::uint32_t uniq,
                          std::uint32_t canPhysReqId, std::uint32_t canRespUSDTId);
void TraceCopCancelReq(const TraceCop& cop);
void TraceCopCancelResult(const TraceCop& cop, bool found, std::uint32_t last_status,
                          bool abort_set);
void TraceCopState(const TraceCop& cop, std::uint32_t from, std::uint32_t to, std::uint64_t dur_ms);
void TraceCopRx(const TraceCop& cop, std::uint32_t uniq, std::uint32_t acc, const void* rx,
                std::uint32_t rx_len);
void TraceCopError(const TraceCop& cop, std::uint32_t err);
// Returns the t0_us for TraceNotifyEnd. 0: nothing was written, and TraceNotifyEnd will write
// nothing.
std::uint64_t TraceNotifyBegin(const TraceCop& cop, std::uint32_t itemType, std::uint32_t evtType);
void TraceNotifyEnd(const TraceCop& cop, std::uint32_t itemType, std::uint32_t evtType,
                    std::uint64_t t0_us);
void TraceCopFree(const TraceCop& cop, std::uint32_t final_state);
void TraceItemDestroy(std::uint32_t itemType, std::uint32_t hCoP);

struct TraceCommReq {
    std::uint32_t req_id;
    const void* tx;
    std::uint32_t tx_len;
    std::uint32_t can_id_tx_func, can_id_tx_phys, can_id_rx, timeout, transport;
};
void TraceCommReqSent(const TraceCommReq& request);
void TraceCommResReceived(std::uint32_t req_id, std::uint32_t wait_time, const void* rx,
                          std::uint32_t rx_len);
// `reason` need not end in NUL; a length of 0 writes null.
void TraceBusyReceived(std::uint32_t req_id, const char* reason, std::uint32_t reason_len);
void TraceCloudPkt(const char* dir, const char* stage, const void* packet, std::uint32_t length);

struct TraceTelemetry {
    std::uint32_t pkt_len;
    std::int64_t v, u, rt, rhz;
    std::uint32_t tasks;
    std::int64_t q_cr, q_ct, q_can, i_si, i_mx, i_ru;
    const char* json;
    std::uint32_t json_len;
};
void TraceTelemetryReport(const TraceTelemetry& report);

}  // namespace tarvik
