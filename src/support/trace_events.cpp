#include <algorithm>
#include <cstring>
#include <string_view>

#include "platform/process.h"
#include "support/cop_trace.h"
#include "support/trace_session.h"

namespace tarvik {
namespace {

constexpr std::size_t kEventSize = 1024;
constexpr std::size_t kCloudEventSize = 1400;
constexpr std::size_t kLargeEventSize = 8192;
constexpr std::size_t kMaxReasonText = 510;
constexpr std::size_t kMaxTelemetryText = 4096;

void WriteCop(TraceWriter* line, const TraceCop& cop) {
    line->Number<"hMod">(cop.hMod).Number<"hCLL">(cop.hCLL);
    line->Number<"hCoP">(cop.hCoP);
}

class CopLine : public TraceLine<kEventSize> {
public:
    CopLine(std::string_view event, const TraceCop& cop) : TraceLine(event) { WriteCop(this, cop); }
};

void WriteExpectedResponse(TraceWriter* line, const TraceExpectedResponse& item) {
    const std::size_t uniq_count = item.uniq != nullptr ? item.uniq_count : 0;
    const std::size_t uniq_size = uniq_count * sizeof *item.uniq;
    const std::size_t mask_size = item.mask != nullptr ? item.mask_pattern_len : 0;
    const std::size_t pattern_size = item.pattern != nullptr ? item.mask_pattern_len : 0;
    line->BeginObject()
        .Number<"acc">(item.acc)
        .Number<"type">(item.type)
        .Bytes<"pat", "patLen", "patTr">(item.pattern, pattern_size)
        .Bytes<"mask", "maskLen", "maskTr">(item.mask, mask_size)
        .Bytes<"uniq", "uniqLen", "uniqTr">(item.uniq, uniq_size)
        .EndObject();
}

// The packet's first four bytes in wire order: the name of a type backwards.
void TypeText(char (&text)[4], const std::uint8_t (&type)[4]) {
    for (std::size_t i = 0; i < 4; ++i) {
        const auto character = static_cast<char>(type[i]);
        const bool plain = type[i] >= 32 && type[i] <= 126 && type[i] != '"' && type[i] != '\\';
        text[i] = plain ? character : '.';
    }
}

}  // namespace

void TraceCopStart(const TraceCop& cop, std::uint32_t copType, const void* tx, std::uint32_t tx_len,
                   std::uint32_t numSend, std::uint32_t numRecv) {
    if (!CopTraceActive()) return;
    CopLine line("cop_start", cop);
    line.Number<"copType">(copType)
        .Number<"tx_len">(tx_len)
        .Bytes<"tx_hex", "tx_hex_len", "tx_trunc">(tx, tx_len)
        .Number<"numSend">(numSend)
        .Number<"numRecv">(numRecv);
    line.Write();
}

void TraceCopSendRecvMeta(const TraceCop& cop, const TraceSendRecvMeta& meta) {
    if (!CopTraceActive()) return;
    CopLine line("cop_sendrecv_meta", cop);
    line.Flag<"raw">(meta.raw)
        .Number<"reqAddrMode">(meta.reqAddrMode)
        .Number<"canFuncReqId">(meta.canFuncReqId)
        .Number<"canFuncReqFormat">(meta.canFuncReqFormat)
        .Number<"canPhysReqId">(meta.canPhysReqId)
        .Number<"canPhysReqFormat">(meta.canPhysReqFormat)
        .Number<"canRespUSDTId">(meta.canRespUSDTId)
        .Number<"canRespUSDTFormat">(meta.canRespUSDTFormat)
        .Number<"rc78">(meta.rc78);
    line.Write();
}

void TraceCopExpectedResponses(const TraceCop& cop, std::uint32_t count,
                               TraceExpectedResponse (*item)(const void* context,
                                                             std::uint32_t index),
                               const void* context) {
    if (!CopTraceActive()) return;
    TraceLine<kLargeEventSize> line("cop_expected_responses");
    WriteCop(&line, cop);
    line.Number<"count">(count).BeginArray<"items">();
    // Only whole items are written, and always the end, so that the line remains JSON.
    constexpr std::string_view kLongestEnd = R"(],"trunc":false)";
    constexpr std::size_t kEndSize = kLongestEnd.size() + kTraceLineEnd.size();
    line.Reserve(kEndSize);
    std::size_t whole = line.Length();
    for (std::uint32_t i = 0; i < count && !line.WasCut(); ++i) {
        WriteExpectedResponse(&line, item(context, i));
        if (!line.WasCut()) whole = line.Length();
    }
    const bool truncated = line.WasCut();
    line.RollBack(whole);
    line.Release(kEndSize);
    line.EndArray().Flag<"trunc">(truncated);
    line.Write();
}

void TraceCopEcuCandidate(const TraceCop& cop, std::uint32_t idx, std::uint32_t uniq,
                          std::uint32_t canPhysReqId, std::uint32_t canRespUSDTId) {
    if (!CopTraceActive()) return;
    CopLine line("cop_ecu_candidate", cop);
    line.Number<"idx">(idx)
        .Number<"uniq">(uniq)
        .Number<"canPhysReqId">(canPhysReqId)
        .Number<"canRespUSDTId">(canRespUSDTId);
    line.Write();
}

void TraceCopCancelReq(const TraceCop& cop) {
    if (!CopTraceActive()) return;
    CopLine line("cop_cancel_req", cop);
    line.Write();
}

void TraceCopCancelResult(const TraceCop& cop, bool found, std::uint32_t last_status,
                          bool abort_set) {
    if (!CopTraceActive()) return;
    CopLine line("cop_cancel_result", cop);
    line.Flag<"found">(found).Number<"last_status">(last_status).Flag<"abort_set">(abort_set);
    line.Write();
}

void TraceCopState(const TraceCop& cop, std::uint32_t from, std::uint32_t to,
                   std::uint64_t dur_ms) {
    if (!CopTraceActive()) return;
    CopLine line("cop_state", cop);
    line.Number<"from">(from).Number<"to">(to).Number<"dur_ms">(dur_ms);
    line.Write();
}

void TraceCopRx(const TraceCop& cop, std::uint32_t uniq, std::uint32_t acc, const void* rx,
                std::uint32_t rx_len) {
    if (!CopTraceActive()) return;
    CopLine line("cop_rx", cop);
    line.Number<"uniq">(uniq)
        .Number<"acc">(acc)
        .Number<"rx_len">(rx_len)
        .Bytes<"rx_hex", "rx_hex_len", "rx_trunc">(rx, rx_len);
    line.Write();
}

void TraceCopError(const TraceCop& cop, std::uint32_t err) {
    if (!CopTraceActive()) return;
    CopLine line("cop_error", cop);
    line.Number<"err">(err);
    line.Write();
}

std::uint64_t TraceNotifyBegin(const TraceCop& cop, std::uint32_t itemType, std::uint32_t evtType) {
    if (!CopTraceActive()) return 0;
    const std::uint64_t t0_us = TraceTimeUs();
    CopLine line("notify_begin", cop);
    line.Number<"itemType">(itemType).Number<"evtType">(evtType).Number<"t0_us">(t0_us);
    line.Write();
    return t0_us;
}

void TraceNotifyEnd(const TraceCop& cop, std::uint32_t itemType, std::uint32_t evtType,
                    std::uint64_t t0_us) {
    if (t0_us == 0 || !CopTraceActive()) return;
    const std::uint64_t t1_us = TraceTimeUs();
    CopLine line("notify_end", cop);
    line.Number<"itemType">(itemType)
        .Number<"evtType">(evtType)
        .Number<"t0_us">(t0_us)
        .Number<"t1_us">(t1_us)
        .Number<"dur_us">(t1_us - t0_us);
    line.Write();
}

void TraceCopFree(const TraceCop& cop, std::uint32_t final_state) {
    if (!CopTraceActive()) return;
    CopLine line("cop_free", cop);
    line.Number<"final">(final_state);
    line.Write();
}

void TraceItemDestroy(std::uint32_t itemType, std::uint32_t hCoP) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("item_destroy");
    line.Number<"itemType">(itemType).Number<"hCoP">(hCoP);
    line.Write();
}

void TraceCommReqSent(const TraceCommReq& request) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("comm_req_sent");
    line.Number<"req_id">(request.req_id)
        .Number<"tx_len">(request.tx_len)
        .Bytes<"tx_hex", "tx_hex_len", "tx_trunc">(request.tx, request.tx_len)
        .Number<"can_id_tx_func">(request.can_id_tx_func)
        .Number<"can_id_tx_phys">(request.can_id_tx_phys)
        .Number<"can_id_rx">(request.can_id_rx)
        .Number<"timeout">(request.timeout)
        .Number<"transport">(request.transport);
    line.Write();
    OsDebugOutput("[CopLog] COMM_REQ sent\n");
}

void TraceCommResReceived(std::uint32_t req_id, std::uint32_t wait_time, const void* rx,
                          std::uint32_t rx_len) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("comm_res_received");
    line.Number<"req_id">(req_id)
        .Number<"wait_time">(wait_time)
        .Number<"rx_len">(rx_len)
        .Bytes<"rx_hex", "rx_hex_len", "rx_trunc">(rx, rx_len);
    line.Write();
    OsDebugOutput("[CopLog] COMM_RES received\n");
}

void TraceBusyReceived(std::uint32_t req_id, const char* reason, std::uint32_t reason_len) {
    if (!CopTraceActive()) return;
    TraceLine<kEventSize> line("busy_received");
    line.Number<"req_id">(req_id);
    if (reason_len == 0) {
        line.Null<"reason">();
    } else {
        line.EscapedString<"reason">(reason, reason_len, kMaxReasonText);
    }
    line.Number<"reason_len">(reason_len);
    line.Write();
    OsDebugOutput("[CopLog] BUSY received\n");
}

void TraceCloudPkt(const char* dir, const char* stage, const void* packet, std::uint32_t length) {
    if (!CopTraceActive() || !TraceWritesCloudPackets()) return;
    std::uint8_t type[4] = {};
    std::memcpy(type, packet, std::min<std::size_t>(length, sizeof type));
    char type_text[4];
    TypeText(type_text, type);
    const std::uint32_t shown = TraceWritesCloudBytes() ? length : 0;
    TraceLine<kCloudEventSize> line("cloud_pkt");
    line.String<"dir">(dir)
        .String<"stage">(stage != nullptr ? stage : "?")
        .Number<"type">(static_cast<std::uint32_t>(type[0] | type[1] << 8 | type[2] << 16) |
                        static_cast<std::uint32_t>(type[3]) << 24)
        .String<"type_str">({type_text, sizeof type_text})
        .Number<"len">(length)
        .Bytes<"hex", "hex_len", "trunc">(packet, shown);
    line.Write();
}

void TraceTelemetryReport(const TraceTelemetry& report) {
    if (!CopTraceActive()) return;
    TraceLine<kLargeEventSize> line("telemetry");
    line.Number<"pkt_len">(report.pkt_len)
        .Signed<"v">(report.v)
        .Signed<"u">(report.u)
        .Signed<"rt">(report.rt)
        .Signed<"rhz">(report.rhz)
        .Number<"tasks">(report.tasks)
        .BeginObject<"q">()
        .Signed<"cr">(report.q_cr)
        .Signed<"ct">(report.q_ct)
        .Signed<"can">(report.q_can)
        .EndObject()
        .BeginObject<"i">()
        .Signed<"si">(report.i_si)
        .Signed<"mx">(report.i_mx)
        .Signed<"ru">(report.i_ru)
        .EndObject()
        .Number<"tele_json_len">(report.json_len);
    // Escaped in advance: whether the text is cut comes before the text.
    char text[kMaxTelemetryText + 1];
    TraceWriter json(text, sizeof text);
    const bool whole = json.Escaped(report.json, report.json_len, kMaxTelemetryText);
    line.Flag<"tele_json_trunc">(!whole).String<"tele_json">({json.Data(), json.Length()});
    line.Write();
}

}  // namespace tarvik
