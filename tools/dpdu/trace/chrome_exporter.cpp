#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "trace/exporter.h"
#include "trace/requests.h"
#include "trace/text.h"
#include "uds/ecu_address.h"

namespace dpdu::trace {
namespace {

constexpr std::size_t kNamedBytes = 8;
constexpr std::uint32_t kNoModule = 0xFFFFFFFF;

// A viewer shows processes with threads; here these are modules with links. Two processes may have
// modules with the same handle.
class ChromeExporter : public Exporter, public RequestSink {
public:
    explicit ChromeExporter(Output* output) : output_(output), tracker_(this) {
        output_->Line("{\"displayTimeUnit\":\"ms\",\"traceEvents\":[");
    }

    void BeginFile(bool) override {}
    void Take(const Record& record) override {
        tracker_.Take(record);
        if (record.event == Event::kTelemetry) ShowTelemetry(record);
    }
    void EndOfFile() override { tracker_.Finish(); }
    void Finish() override { output_->Line(is_first_ ? "]}" : "\n]}"); }

    void OnRawFrame(const Request& request, const RawFrame& frame) override {
        const std::string name = CanIdText(frame.can_id) + (frame.is_sent ? " sent" : " received");
        Json event = Header(name, "raw", "i", request, frame.time_us);
        event["s"] = "t";
        event["args"] = {{"data", HexText(frame.data, " ")}};
        Write(event);
    }

    void OnRequest(const Request& request) override {
        if (request.started_us > request.queued_us) ShowQueued(request);
        const std::uint64_t begin = request.started_us > 0 ? request.started_us : request.queued_us;
        const std::uint64_t end = std::max(request.freed_us, request.EndUs());
        Json whole = Span(RequestText(request, kNamedBytes), "request", request, begin, end);
        whole["args"] = Arguments(request);
        Write(whole);
        for (std::size_t i = 0; i < request.exchanges.size(); ++i)
            ShowExchange(request, i, end);
        for (const CallbackTime& time : request.callbacks) {
            Write(Span("callback", "callback", request, time.begin_us,
                       time.begin_us + time.length_us));
        }
    }

private:
    int ProcessOf(std::uint32_t process, std::uint32_t module) {
        const auto [found, is_new] =
            processes_.try_emplace({process, module}, static_cast<int>(processes_.size()) + 1);
        if (is_new) {
            const std::string what =
                module == kNoModule ? "telemetry" : "module " + std::to_string(module);
            Name("process_name", found->second, 0,
                 "process " + std::to_string(process) + ", " + what);
        }
        return found->second;
    }

    void Name(const char* what, int pid, std::uint32_t tid, const std::string& name) {
        Write(
            {{"name", what}, {"ph", "M"}, {"pid", pid}, {"tid", tid}, {"args", {{"name", name}}}});
    }

    Json Header(const std::string& name, const char* category, const char* phase,
                const Request& request, std::uint64_t time_us) {
        const int pid = ProcessOf(request.process, request.module);
        if (links_.insert({pid, request.link}).second) {
            Name("thread_name", pid, request.link, "link " + std::to_string(request.link));
        }
        return {{"name", name}, {"cat", category},     {"ph", phase},
                {"pid", pid},   {"tid", request.link}, {"ts", time_us}};
    }

    Json Span(const std::string& name, const char* category, const Request& request,
              std::uint64_t begin_us, std::uint64_t end_us) {
        Json event = Header(name, category, "X", request, begin_us);
        event["dur"] = end_us > begin_us ? end_us - begin_us : 0;
        return event;
    }

    // Queued requests may overlap, but spans of one thread must not, so they have a separate row.
    void ShowQueued(const Request& request) {
        const std::string id = std::to_string(request.process) + "." + std::to_string(request.cop);
        const std::string name = "queued " + RequestText(request, kNamedBytes);
        for (const auto& [phase, time_us] :
             {std::pair("b", request.queued_us), std::pair("e", request.started_us)}) {
            Json event = Header(name, "queued", phase, request, time_us);
            event["id"] = id;
            Write(event);
        }
    }

    void ShowExchange(const Request& request, std::size_t position, std::uint64_t end_us) {
        const Exchange& exchange = request.exchanges[position];
        const bool is_last = position + 1 == request.exchanges.size();
        const std::uint64_t given_up =
            is_last ? std::min(request.EndUs(), end_us) : request.exchanges[position + 1].sent_us;
        Json event = Span(exchange.is_functional ? "waiting for all"
                                                 : "waiting for " + CanIdText(exchange.response_id),
                          "wait", request, exchange.sent_us,
                          exchange.answered_us > 0 ? exchange.answered_us : given_up);
        event["args"] = {{"result", ResultText(exchange.result)},
                         {"timeoutMs", exchange.timeout_ms}};
        Write(event);
    }

    static const char* ResultText(ExchangeResult result) {
        switch (result) {
            case ExchangeResult::kOpen:
                return "nothing came";
            case ExchangeResult::kAnswered:
                return "answered";
            case ExchangeResult::kSilent:
                return "time-out";
            case ExchangeResult::kError:
                return "error";
        }
        return "";
    }

    static Json Arguments(const Request& request) {
        Json arguments = {
            {"comPrimitive", request.cop},          {"type", ComPrimitiveTypeText(request.type)},
            {"address", AddressText(request)},      {"request", HexText(request.sent.bytes, " ")},
            {"requestLength", request.sent.length}, {"outcome", OutcomeText(request)}};
        Json answers = Json::array();
        for (const Exchange& exchange : request.exchanges) {
            if (exchange.answer.length > 0) {
                answers.push_back({{"from", CanIdText(exchange.response_id)},
                                   {"data", HexText(exchange.answer.bytes, " ")},
                                   {"length", exchange.answer.length}});
            }
            for (const UnitAnswer& answer : exchange.answers) {
                if (answer.position >= request.units.size()) continue;
                answers.push_back({{"from", CanIdText(request.units[answer.position].response_id)},
                                   {"data", HexText(answer.payload.bytes, " ")},
                                   {"length", answer.payload.length}});
            }
        }
        arguments["answers"] = answers;
        if (!request.errors.empty()) arguments["errors"] = request.errors;
        if (request.busy > 0) {
            arguments["busy"] = request.busy;
            arguments["busyReason"] = request.busy_reason;
        }
        return arguments;
    }

    // The trace does not say which dongle it is from.
    void ShowTelemetry(const Record& record) {
        const std::pair<const char*, Field> values[] = {{"rt", Field::kTelemetryRt},
                                                        {"tasks", Field::kTelemetryTasks},
                                                        {"q.cr", Field::kTelemetryCr},
                                                        {"q.ct", Field::kTelemetryCt},
                                                        {"q.can", Field::kTelemetryCan}};
        const std::uint32_t process = record.U32(Field::kProcess);
        const int pid = ProcessOf(process, kNoModule);
        for (const auto& [name, field] : values) {
            if (record.Number(field) < 0) continue;
            Write({{"name", name},
                   {"cat", "telemetry"},
                   {"ph", "C"},
                   {"pid", pid},
                   {"ts", record.TimeUs()},
                   {"args", {{"value", record.Number(field)}}}});
        }
    }

    void Write(const Json& event) {
        output_->Text(is_first_ ? "" : ",\n");
        output_->Text(event.dump(-1, ' ', false, Json::error_handler_t::replace));
        is_first_ = false;
    }

    Output* output_;
    RequestTracker tracker_;
    std::map<std::pair<std::uint32_t, std::uint32_t>, int> processes_;  // by process and module
    std::set<std::pair<int, std::uint32_t>> links_;  // links that have been named
    bool is_first_ = true;
};

}  // namespace

std::unique_ptr<Exporter> MakeChromeExporter(Output* output) {
    return std::make_unique<ChromeExporter>(output);
}

}  // namespace dpdu::trace
