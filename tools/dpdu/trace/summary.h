// Summarises a trace in figures.

#ifndef TOOLS_DPDU_TRACE_SUMMARY_H
#define TOOLS_DPDU_TRACE_SUMMARY_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "console/output.h"
#include "trace/reader.h"
#include "trace/requests.h"
#include "trace/sessions.h"
#include "trace/statistics.h"

namespace dpdu::trace {

struct LinkFigures {
    std::uint64_t requests = 0;
    std::uint64_t errors = 0;
    std::uint64_t raw_sent = 0;
    std::uint64_t raw_received = 0;
};

struct UnitFigures {
    std::uint64_t requests = 0;
    std::uint64_t answers = 0;
    std::uint64_t negative = 0;
    std::uint64_t time_outs = 0;
    TimeStatistics answer_times;  // from sending to the dongle to the answer's arrival
};

struct UnitKey {
    std::uint32_t request_id = 0;
    std::uint32_t response_id = 0;
    bool is_functional = false;  // all units of a functional request; no response id
    // NOLINTNEXTLINE(modernize-use-nullptr): not a pointer; clang-tidy misreads the compiler's 0
    auto operator<=>(const UnitKey&) const = default;
};

struct SlowRequest {
    std::uint64_t duration_us = 0;
    std::uint64_t start_us = 0;  // since the beginning of its session
    std::uint32_t process = 0;
    std::uint32_t cop = 0;
    std::string address;
    std::string request;
    std::string outcome;
};

struct Extremes {
    std::uint64_t count = 0;
    std::int64_t least = 0;
    std::int64_t greatest = 0;
    std::int64_t last = 0;

    void Add(std::int64_t value);
};

struct CloudFigures {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
};

class Summary : public RequestSink {
public:
    explicit Summary(std::size_t slowest) : most_slowest_(slowest), tracker_(this) {}

    void Take(const Record& record);
    void EndOfFile(const ReadReport& report);
    void Print(Output* output) const;

    void OnAnswer(const Request& request, const Exchange& exchange) override;
    void OnLateAnswer(const Request& request, const UnitAnswer& answer, std::uint64_t) override;
    void OnRawFrame(const Request& request, const RawFrame& frame) override;
    void OnRequest(const Request& request) override;

private:
    void CountUnitAnswer(const Request& request, const UnitAnswer& answer);
    void CountNegative(const Payload& payload, UnitFigures* unit);
    void CountExchange(const Request& request, const Exchange& exchange, bool is_last);
    void CountOutcome(const Request& request);
    void CountTelemetry(const Record& record);
    void KeepIfSlow(const Request& request);
    UnitKey KeyOf(const Request& request, std::uint32_t position) const;
    std::vector<const SlowRequest*> Slowest() const;
    std::uint64_t Requests() const;
    std::uint64_t DurationUs() const;

    void PrintText(Output* output) const;
    Json Document() const;
    std::vector<Row> TotalRows() const;
    std::vector<Row> SessionRows() const;
    std::vector<Row> LinkRows() const;
    std::vector<Row> UnitRows() const;
    std::vector<Row> SlowRows() const;
    std::vector<Row> RawRows() const;
    std::vector<Row> TelemetryRows() const;
    std::vector<Row> CloudRows() const;

    const std::size_t most_slowest_;
    RequestTracker tracker_;

    std::uint64_t records_ = 0;
    std::uint64_t cut_ = 0;
    std::uint64_t damaged_ = 0;
    std::uint64_t unknown_ = 0;
    Sessions sessions_;

    std::map<std::uint32_t, std::uint64_t> by_type_;
    std::uint64_t finished_ = 0;
    std::uint64_t cancelled_ = 0;
    std::uint64_t unfinished_ = 0;
    std::uint64_t with_errors_ = 0;
    std::map<std::uint32_t, std::uint64_t> errors_;
    std::uint64_t time_outs_ = 0;
    std::uint64_t retries_ = 0;
    std::uint64_t busy_ = 0;
    std::string busy_reason_;
    std::uint64_t stray_answers_ = 0;
    std::map<std::uint8_t, std::uint64_t> negative_;
    TimeStatistics request_times_;  // of SENDRECV, from start to final state
    TimeStatistics callback_times_;

    std::map<std::pair<std::uint32_t, std::uint32_t>, LinkFigures> links_;  // by module and link
    std::map<UnitKey, UnitFigures> units_;
    std::vector<SlowRequest> slowest_;  // a heap, the fastest of them first
    std::map<std::pair<std::uint32_t, bool>, std::uint64_t> raw_;  // by identifier and direction
    std::map<Field, Extremes> telemetry_;
    std::uint64_t telemetry_reports_ = 0;
    std::map<std::pair<std::string, std::string>, CloudFigures> cloud_;  // by direction and type
};

}  // namespace dpdu::trace

#endif  // TOOLS_DPDU_TRACE_SUMMARY_H
