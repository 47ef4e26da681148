#include <algorithm>
#include <cstring>

#include "platform/process.h"
#include "support/cop_trace.h"
#include "support/trace_session.h"

namespace tarvik {

static constexpr std::size_t kEventSize = 1024;
static constexpr std::size_t kCloudEventSize = 1400;
static constexpr std::size_t kLargeEventSize = 8192;
static constexpr std::size_t kMaxReasonText = 510;
static constexpr std::size_t kMaxTelemetryText = 4096;

static void WriteCop(TraceWriter* line, const TraceCop& cop) {
    line->Number(",\"hMod\":", cop.hMod).Number(",\"hCLL\":", cop.hCLL);
    line->Number(",\"hCoP\":", cop.hCoP);
}

void TraceCopStart(const TraceCop& cop, std::uint32_t copType, const void* tx, std::uint32_t tx_len,
                   std::uint32_t numSend, std::uint32_t numRecv) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_start");
    WriteCop(&line, cop);
    line.Number(",\"copType\":", copType)
        .Number(",\"tx_len\":", tx_len)
        .Hex(",\"tx_hex\":\"", tx, tx_len)
        .Number("\",\"tx_hex_len\":", TraceWriter::HexBytes(tx_len))
        .Flag(",\"tx_trunc\":", TraceWriter::HexCut(tx_len))
        .Number(",\"numSend\":", numSend)
        .Number(",\"numRecv\":", numRecv)
        .Text("}\n");
    line.Write();
}

void TraceCopSendRecvMeta(const TraceCop& cop, bool raw, std::uint32_t reqAddrMode,
                          std::uint32_t canFuncReqId, std::uint32_t canFuncReqFormat,
                          std::uint32_t canPhysReqId, std::uint32_t canPhysReqFormat,
                          std::uint32_t canRespUSDTId, std::uint32_t canRespUSDTFormat,
                          std::uint32_t rc78) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_sendrecv_meta");
    WriteCop(&line, cop);
    line.Flag(",\"raw\":", raw)
        .Number(",\"reqAddrMode\":", reqAddrMode)
        .Number(",\"canFuncReqId\":", canFuncReqId)
        .Number(",\"canFuncReqFormat\":", canFuncReqFormat)
        .Number(",\"canPhysReqId\":", canPhysReqId)
        .Number(",\"canPhysReqFormat\":", canPhysReqFormat)
        .Number(",\"canRespUSDTId\":", canRespUSDTId)
        .Number(",\"canRespUSDTFormat\":", canRespUSDTFormat)
        .Number(",\"rc78\":", rc78)
        .Text("}\n");
    line.Write();
}

static void WriteExpectedResponse(TraceWriter* line, const TraceExpectedResponse& item) {
    const std::size_t uniq_count = item.uniq != nullptr ? item.uniq_count : 0;
    const std::size_t uniq_size = uniq_count * sizeof *item.uniq;
    const std::size_t mask_size = item.mask != nullptr ? item.mask_pattern_len : 0;
    const std::size_t pattern_size = item.pattern != nullptr ? item.mask_pattern_len : 0;
    line->Number("{\"acc\":", item.acc)
        .Number(",\"type\":", item.type)
        .Hex(",\"pat\":\"", item.pattern, pattern_size)
        .Number("\",\"patLen\":", TraceWriter::HexBytes(pattern_size))
        .Flag(",\"patTr\":", TraceWriter::HexCut(pattern_size))
        .Hex(",\"mask\":\"", item.mask, mask_size)
        .Number("\",\"maskLen\":", TraceWriter::HexBytes(mask_size))
        .Flag(",\"maskTr\":", TraceWriter::HexCut(mask_size))
        .Hex(",\"uniq\":\"", item.uniq, uniq_size)
        .Number("\",\"uniqLen\":", TraceWriter::HexBytes(uniq_size))
        .Flag(",\"uniqTr\":", TraceWriter::HexCut(uniq_size))
        .Text("}");
}

void TraceCopExpectedResponses(const TraceCop& cop, std::uint32_t count,
                               TraceExpectedResponse (*item)(const void* context,
                                                             std::uint32_t index),
                               const void* context) {
    if (!CopTraceActive()) return;
    TraceLine<kLargeEventSize> line("cop_expected_responses");
    WriteCop(&line, cop);
    line.Number(",\"count\":", count).Text(",\"items\":[");
    // Only whole items are written, and the end always is, so that the line stays JSON.
    constexpr std::size_t kEndSize = sizeof "],\"trunc\":false}\n" - 1;
    line.Reserve(kEndSize);
    std::size_t whole = line.Length();
    for (std::uint32_t i = 0; i < count && !line.WasCut(); ++i) {
        line.Text(i == 0 ? "" : ",");
        WriteExpectedResponse(&line, item(context, i));
        if (!line.WasCut()) whole = line.Length();
    }
    const bool truncated = line.WasCut();
    line.RollBack(whole);
    line.Release(kEndSize);
    line.Flag("],\"trunc\":", truncated).Text("}\n");
    line.Write();
}

void TraceCopEcuCandidate(const TraceCop& cop, std::uint32_t idx, std::uint32_t uniq,
                          std::uint32_t canPhysReqId, std::uint32_t canRespUSDTId) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_ecu_candidate");
    WriteCop(&line, cop);
    line.Number(",\"idx\":", idx)
        .Number(",\"uniq\":", uniq)
        .Number(",\"canPhysReqId\":", canPhysReqId)
        .Number(",\"canRespUSDTId\":", canRespUSDTId)
        .Text("}\n");
    line.Write();
}

void TraceCopCancelReq(const TraceCop& cop) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_cancel_req");
    WriteCop(&line, cop);
    line.Text("}\n");
    line.Write();
}

void TraceCopCancelResult(const TraceCop& cop, bool found, std::uint32_t last_status,
                          bool abort_set) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_cancel_result");
    WriteCop(&line, cop);
    line.Flag(",\"found\":", found)
        .Number(",\"last_status\":", last_status)
        .Flag(",\"abort_set\":", abort_set)
        .Text("}\n");
    line.Write();
}

void TraceCopState(const TraceCop& cop, std::uint32_t from, std::uint32_t to,
                   std::uint64_t dur_ms) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_state");
    WriteCop(&line, cop);
    line.Number(",\"from\":", from)
        .Number(",\"to\":", to)
        .Number(",\"dur_ms\":", dur_ms)
        .Text("}\n");
    line.Write();
}

void TraceCopRx(const TraceCop& cop, std::uint32_t uniq, std::uint32_t acc, const void* rx,
                std::uint32_t rx_len) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_rx");
    WriteCop(&line, cop);
    line.Number(",\"uniq\":", uniq)
        .Number(",\"acc\":", acc)
        .Number(",\"rx_len\":", rx_len)
        .Hex(",\"rx_hex\":\"", rx, rx_len)
        .Number("\",\"rx_hex_len\":", TraceWriter::HexBytes(rx_len))
        .Flag(",\"rx_trunc\":", TraceWriter::HexCut(rx_len))
        .Text("}\n");
    line.Write();
}

void TraceCopError(const TraceCop& cop, std::uint32_t err) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_error");
    WriteCop(&line, cop);
    line.Number(",\"err\":", err).Text("}\n");
    line.Write();
}

std::uint64_t TraceNotifyBegin(const TraceCop& cop, std::uint32_t itemType, std::uint32_t evtType) {
    if (!CopTraceActive()) return 0;
    const std::uint64_t t0_us = TraceTimeUs();
    TraceLine<kEventSize> line("notify_begin");
    WriteCop(&line, cop);
    line.Number(",\"itemType\":", itemType)
        .Number(",\"evtType\":", evtType)
        .Number(",\"t0_us\":", t0_us)
        .Text("}\n");
    line.Write();
    return t0_us;
}

void TraceNotifyEnd(const TraceCop& cop, std::uint32_t itemType, std::uint32_t evtType,
                    std::uint64_t t0_us) {
    if (t0_us == 0 || !CopTraceActive()) return;
    const std::uint64_t t1_us = TraceTimeUs();
    TraceLine<kEventSize> line("notify_end");
    WriteCop(&line, cop);
    line.Number(",\"itemType\":", itemType)
        .Number(",\"evtType\":", evtType)
        .Number(",\"t0_us\":", t0_us)
        .Number(",\"t1_us\":", t1_us)
        .Number(",\"dur_us\":", t1_us - t0_us)
        .Text("}\n");
    line.Write();
}

void TraceCopFree(const TraceCop& cop, std::uint32_t final_state) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("cop_free");
    WriteCop(&line, cop);
    line.Number(",\"final\":", final_state).Text("}\n");
    line.Write();
}

void TraceItemDestroy(std::uint32_t itemType, std::uint32_t hCoP) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("item_destroy");
    line.Number(",\"itemType\":", itemType).Number(",\"hCoP\":", hCoP).Text("}\n");
    line.Write();
}

void TraceCommReqSent(const TraceCommReq& request) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("comm_req_sent");
    line.Number(",\"req_id\":", request.req_id)
        .Number(",\"tx_len\":", request.tx_len)
        .Hex(",\"tx_hex\":\"", request.tx, request.tx_len)
        .Number("\",\"tx_hex_len\":", TraceWriter::HexBytes(request.tx_len))
        .Flag(",\"tx_trunc\":", TraceWriter::HexCut(request.tx_len))
        .Number(",\"can_id_tx_func\":", request.can_id_tx_func)
        .Number(",\"can_id_tx_phys\":", request.can_id_tx_phys)
        .Number(",\"can_id_rx\":", request.can_id_rx)
        .Number(",\"timeout\":", request.timeout)
        .Number(",\"transport\":", request.transport)
        .Text("}\n");
    line.Write();
    OsDebugOutput("[CopLog] COMM_REQ sent\n");
}

void TraceCommResReceived(std::uint32_t req_id, std::uint32_t wait_time, const void* rx,
                          std::uint32_t rx_len) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("comm_res_received");
    line.Number(",\"req_id\":", req_id)
        .Number(",\"wait_time\":", wait_time)
        .Number(",\"rx_len\":", rx_len)
        .Hex(",\"rx_hex\":\"", rx, rx_len)
        .Number("\",\"rx_hex_len\":", TraceWriter::HexBytes(rx_len))
        .Flag(",\"rx_trunc\":", TraceWriter::HexCut(rx_len))
        .Text("}\n");
    line.Write();
    OsDebugOutput("[CopLog] COMM_RES received\n");
}

void TraceBusyReceived(std::uint32_t req_id, const char* reason, std::uint32_t reason_len) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("busy_received");
    line.Number(",\"req_id\":", req_id);
    if (reason_len == 0) {
        line.Text(",\"reason\":null,\"reason_len\":0}\n");
    } else {
        line.Escaped(",\"reason\":\"", reason, reason_len, kMaxReasonText);
        line.Number("\",\"reason_len\":", reason_len).Text("}\n");
    }
    line.Write();
    OsDebugOutput("[CopLog] BUSY received\n");
}

// The packet's first four bytes as they stand on the wire, which for a readable type code is its
// name backwards.
static void TypeText(char (&text)[4], const std::uint8_t (&type)[4]) {
    for (std::size_t i = 0; i < 4; ++i) {
        const auto character = static_cast<char>(type[i]);
        const bool plain = type[i] >= 32 && type[i] <= 126 && type[i] != '"' && type[i] != '\\';
        text[i] = plain ? character : '.';
    }
}

void TraceCloudPkt(const char* dir, const char* stage, const void* packet, std::uint32_t length) {
    if (!CopTraceActive() || !TraceWritesCloudPackets()) return;
    std::uint8_t type[4] = {};
    std::memcpy(type, packet, std::min<std::size_t>(length, sizeof type));
    char type_text[4];
    TypeText(type_text, type);
    const std::uint32_t shown = TraceWritesCloudBytes() ? length : 0;
    TraceLine<kCloudEventSize> line("cloud_pkt");
    line.Text(",\"dir\":\"").Text(dir).Text("\",\"stage\":\"");
    line.Text(stage != nullptr ? stage : "?")
        .Number("\",\"type\":", static_cast<std::uint32_t>(type[0] | type[1] << 8 | type[2] << 16) |
                                    static_cast<std::uint32_t>(type[3]) << 24)
        .Text(",\"type_str\":\"")
        .Text({type_text, sizeof type_text})
        .Number("\",\"len\":", length)
        .Hex(",\"hex\":\"", packet, shown)
        .Number("\",\"hex_len\":", TraceWriter::HexBytes(shown))
        .Flag(",\"trunc\":", TraceWriter::HexCut(shown))
        .Text("}\n");
    line.Write();
}

void TraceTelemetryReport(const TraceTelemetry& report) {
    if (!CopTraceActive()) return;
    TraceLine<kLargeEventSize> line("telemetry");
    line.Number(",\"pkt_len\":", report.pkt_len)
        .Signed(",\"v\":", report.v)
        .Signed(",\"u\":", report.u)
        .Signed(",\"rt\":", report.rt)
        .Signed(",\"rhz\":", report.rhz)
        .Number(",\"tasks\":", report.tasks)
        .Signed(",\"q\":{\"cr\":", report.q_cr)
        .Signed(",\"ct\":", report.q_ct)
        .Signed(",\"can\":", report.q_can)
        .Signed("},\"i\":{\"si\":", report.i_si)
        .Signed(",\"mx\":", report.i_mx)
        .Signed(",\"ru\":", report.i_ru)
        .Number("},\"tele_json_len\":", report.json_len);
    // Whether the text is cut stands before it, so it is escaped aside first.
    char text[kMaxTelemetryText + 1];
    TraceWriter json(text, sizeof text);
    const bool whole = json.Escaped("", report.json, report.json_len, kMaxTelemetryText);
    line.Flag(",\"tele_json_trunc\":", !whole)
        .Text(",\"tele_json\":\"")
        .Text({json.Data(), json.Length()})
        .Text("\"}\n");
    line.Write();
}

}  // namespace tarvik
