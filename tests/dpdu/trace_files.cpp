#include "trace_files.h"

#include <fstream>
#include <map>

#include "client_run.h"
#include "file_time.h"
#include "path_text.h"

std::string TracePath(const std::string& name) { return TRACE_FOLDER "/" + name + ".jsonl"; }

std::string TraceText(const std::string& name) { return ReadWholeFile(TracePath(name)); }

std::string TraceLine(int seq, int ts_us, const std::string& event, const std::string& fields) {
    return "{\"seq\":" + std::to_string(seq) + ",\"ts_us\":" + std::to_string(ts_us) +
           ",\"tick_ms\":" + std::to_string(ts_us / 1000) + ",\"pid\":7,\"tid\":8,\"ev\":\"" +
           event + "\"" + (fields.empty() ? "" : "," + fields) + "}\n";
}

std::string CopLine(int seq, int ts_us, const std::string& event, int cop,
                    const std::string& fields) {
    return TraceLine(seq, ts_us, event,
                     "\"hMod\":0,\"hCLL\":1,\"hCoP\":" + std::to_string(cop) + fields);
}

std::string StartLine(int seq, int ts_us, int cop, const char* hex) {
    const std::string length = std::to_string(std::string(hex).size() / 2);
    return CopLine(seq, ts_us, "cop_start", cop,
                   ",\"copType\":32772,\"tx_len\":" + length + ",\"tx_hex\":\"" + hex +
                       "\",\"tx_hex_len\":" + length +
                       ",\"tx_trunc\":false,\"numSend\":1,\"numRecv\":1");
}

std::string StateLine(int seq, int ts_us, int cop, int to) {
    return CopLine(seq, ts_us, "cop_state", cop,
                   ",\"from\":32784,\"to\":" + std::to_string(to) + ",\"dur_ms\":0");
}

std::string SentLine(int seq, int ts_us, int cop) {
    return TraceLine(seq, ts_us, "comm_req_sent",
                     "\"req_id\":" + std::to_string(cop) +
                         ",\"tx_len\":1,\"tx_hex\":\"3e\",\"tx_hex_len\":1,\"tx_trunc\":false,"
                         "\"can_id_tx_func\":2016,\"can_id_tx_phys\":2016,\"can_id_rx\":2024,"
                         "\"timeout\":550,\"transport\":0");
}

std::string ReceivedLine(int seq, int ts_us, int cop, const char* hex) {
    const std::string length = std::to_string(std::string(hex).size() / 2);
    return TraceLine(seq, ts_us, "comm_res_received",
                     "\"req_id\":" + std::to_string(cop) + ",\"wait_time\":3,\"rx_len\":" + length +
                         ",\"rx_hex\":\"" + hex + "\",\"rx_hex_len\":" + length +
                         ",\"rx_trunc\":false");
}

std::string FreeLine(int seq, int ts_us, int cop) {
    return CopLine(seq, ts_us, "cop_free", cop, ",\"final\":32786");
}

namespace {

// 0: it has none.
std::uint64_t LastTimeUs(const std::string& text) {
    const std::string key = "\"ts_us\":";
    const std::size_t at = text.rfind(key);
    return at == std::string::npos ? 0 : std::stoull(text.substr(at + key.size()));
}

}  // namespace

TemporaryTrace::TemporaryTrace(const std::string& text) : TemporaryTrace(text, LastTimeUs(text)) {}

TemporaryTrace::TemporaryTrace(const std::string& text, std::uint64_t changed_us)
    : path_(TemporaryPath("trace.jsonl")) {
    std::ofstream(PathOf(path_), std::ios::binary) << text;
    SetChangedUs(path_, changed_us);
}

std::string CounterTrace(const std::string& name) {
    static std::map<std::string, TemporaryTrace> traces;
    return traces.try_emplace(name, TraceText(name)).first->second.Path();
}

TemporaryTrace::~TemporaryTrace() { RemoveFile(path_); }
