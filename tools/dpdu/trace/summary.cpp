#include "trace/summary.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "trace/text.h"
#include "uds/answers.h"
#include "uds/ecu_address.h"

namespace dpdu::trace {
namespace {

constexpr std::size_t kShownBytes = 8;

struct TelemetryName {
    const char* name;  // as the dongle reports it
    Field field;
};

constexpr TelemetryName kTelemetryNames[] = {
    {"v", Field::kTelemetryV},     {"u", Field::kTelemetryU},         {"rt", Field::kTelemetryRt},
    {"rhz", Field::kTelemetryRhz}, {"tasks", Field::kTelemetryTasks}, {"q.cr", Field::kTelemetryCr},
    {"q.ct", Field::kTelemetryCt}, {"q.can", Field::kTelemetryCan},   {"i.si", Field::kTelemetrySi},
    {"i.mx", Field::kTelemetryMx}, {"i.ru", Field::kTelemetryRu},
};

constexpr std::int64_t kNoTelemetryValue = -1;

// Puts the fastest one at the front of the heap.
bool IsFaster(const SlowRequest& a, const SlowRequest& b) { return a.duration_us > b.duration_us; }

std::string CountText(std::uint64_t count) { return std::to_string(count); }

// "3 (1 STARTCOMM, 2 SENDRECV)"
template <typename Map, typename Name>
std::string CountWithParts(std::uint64_t count, const Map& parts, Name name) {
    std::string text;
    for (const auto& [key, number] : parts) {
        text += text.empty() ? " (" : ", ";
        text += CountText(number) + " " + name(key);
    }
    return CountText(count) + text + (text.empty() ? "" : ")");
}

std::uint64_t SumOf(const auto& counts) {
    std::uint64_t sum = 0;
    for (const auto& [key, number] : counts)
        sum += number;
    return sum;
}

std::string NegativeName(std::uint8_t code) {
    return std::string(NegativeResponseName(code)) + " (0x" + HexNumber(code, 2) + ")";
}

// Empty columns if there are no times.
void AppendTimes(const TimeStatistics& times, Row* row) {
    const bool is_empty = times.Count() == 0;
    for (const std::uint64_t time_us :
         {times.MinUs(), times.AverageUs(), times.MaxUs(), times.PercentileUs(95)}) {
        row->push_back(is_empty ? "-" : MsText(time_us));
    }
}

Json TimesJson(const TimeStatistics& times) {
    if (times.Count() == 0) return nullptr;
    return {{"count", times.Count()},
            {"minUs", times.MinUs()},
            {"averageUs", times.AverageUs()},
            {"maxUs", times.MaxUs()},
            {"p95Us", times.PercentileUs(95)}};
}

std::string UnitText(const UnitKey& key) {
    return key.is_functional ? CanIdText(key.request_id)
                             : EcuAddressText({key.request_id, key.response_id});
}

// Headings are on their own line; omits a section without rows.
void PrintPart(const char* title, const std::vector<Row>& rows, bool has_header, Output* output) {
    if (rows.size() <= (has_header ? 1U : 0U)) return;
    output->Line("");
    output->Line(title);
    std::vector<Row> indented = rows;
    for (Row& row : indented)
        row.front().insert(0, "  ");
    output->Table(indented);
}

}  // namespace

void Extremes::Add(std::int64_t value) {
    least = count == 0 ? value : std::min(least, value);
    greatest = count == 0 ? value : std::max(greatest, value);
    last = value;
    ++count;
}

// ---- counting

void Summary::Take(const Record& record) {
    if (record.event == Event::kLogStart) tracker_.Finish();
    sessions_.Take(record);
    switch (record.event) {
        case Event::kTelemetry:
            CountTelemetry(record);
            break;
        case Event::kNotifyEnd:
            callback_times_.Add(static_cast<std::uint64_t>(record.Number(Field::kDurationUs)));
            break;
        case Event::kCloudPacket: {
            CloudFigures& figures = cloud_[{record.direction, record.type}];
            ++figures.packets;
            figures.bytes += record.U32(Field::kLength);
            break;
        }
        default:
            break;
    }
    tracker_.Take(record);
}

void Summary::EndOfFile(const ReadReport& report) {
    tracker_.Finish();
    sessions_.EndOfFile();
    records_ += report.records;
    cut_ += report.cut;
    damaged_ += report.damaged.count;
    unknown_ += report.unknown.count;
}

void Summary::CountTelemetry(const Record& record) {
    ++telemetry_reports_;
    for (const TelemetryName& row : kTelemetryNames) {
        const std::int64_t value = record.Number(row.field);
        if (value != kNoTelemetryValue) telemetry_[row.field].Add(value);
    }
}

void Summary::CountNegative(const Payload& payload, UnitFigures* unit) {
    const auto negative = ParseNegativeResponse(payload.bytes);
    if (!negative) return;
    ++unit->negative;
    ++negative_[negative->code];
}

UnitKey Summary::KeyOf(const Request& request, std::uint32_t position) const {
    if (position >= request.units.size()) return {};
    return {request.units[position].request_id, request.units[position].response_id, false};
}

void Summary::CountUnitAnswer(const Request& request, const UnitAnswer& answer) {
    if (answer.position >= request.units.size() || answer.payload.length == 0) return;
    UnitFigures& unit = units_[KeyOf(request, answer.position)];
    ++unit.answers;
    CountNegative(answer.payload, &unit);
}

void Summary::OnAnswer(const Request& request, const Exchange& exchange) {
    if (exchange.result != ExchangeResult::kAnswered) return;
    UnitFigures& unit = units_[{exchange.request_id, exchange.response_id, exchange.is_functional}];
    unit.answer_times.Add(exchange.WaitedUs());
    if (!exchange.is_functional) {
        ++unit.answers;
        CountNegative(exchange.answer, &unit);
        return;
    }
    for (const UnitAnswer& answer : exchange.answers) {
        if (answer.payload.length > 0) ++unit.answers;
        CountUnitAnswer(request, answer);
    }
}

void Summary::OnLateAnswer(const Request& request, const UnitAnswer& answer, std::uint64_t) {
    const Exchange& exchange = request.exchanges.back();
    ++units_[{exchange.request_id, exchange.response_id, true}].answers;
    CountUnitAnswer(request, answer);
}

void Summary::OnRawFrame(const Request& request, const RawFrame& frame) {
    LinkFigures& link = links_[{request.module, request.link}];
    ++(frame.is_sent ? link.raw_sent : link.raw_received);
    ++raw_[{frame.can_id, frame.is_sent}];
}

// The control units of an attempt, and which of them did not answer.
void Summary::CountExchange(const Request& request, const Exchange& exchange, bool is_last) {
    const bool was_given_up =
        exchange.result == ExchangeResult::kOpen && is_last && !request.IsFinished();
    const bool is_silent = exchange.result == ExchangeResult::kSilent ||
                           (exchange.result == ExchangeResult::kOpen && !was_given_up);
    UnitFigures& whole =
        units_[{exchange.request_id, exchange.response_id, exchange.is_functional}];
    ++whole.requests;
    if (is_silent) ++whole.time_outs;
    if (!exchange.is_functional) return;
    for (std::uint32_t position = 0; position < request.units.size(); ++position) {
        UnitFigures& unit = units_[KeyOf(request, position)];
        ++unit.requests;
        const bool has_answered = std::any_of(
            exchange.answers.begin(), exchange.answers.end(), [position](const UnitAnswer& answer) {
                return answer.position == position && answer.payload.length > 0;
            });
        if (is_silent || (exchange.has_all_answers && !has_answered)) ++unit.time_outs;
    }
}

void Summary::CountOutcome(const Request& request) {
    ++by_type_[request.type];
    if (request.IsCancelled()) {
        ++cancelled_;
    } else if (request.IsFinished() || request.freed_us > 0) {
        ++finished_;
    } else {
        ++unfinished_;
    }
    if (!request.errors.empty()) ++with_errors_;
    for (const std::uint32_t error : request.errors)
        ++errors_[error];
    time_outs_ += request.TimeOuts();
    retries_ += request.Retries();
    busy_ += request.busy;
    if (!request.busy_reason.empty()) busy_reason_ = request.busy_reason;
    stray_answers_ += request.stray_answers;
}

void Summary::OnRequest(const Request& request) {
    CountOutcome(request);
    LinkFigures& link = links_[{request.module, request.link}];
    ++link.requests;
    if (!request.errors.empty()) ++link.errors;
    for (const Exchange& exchange : request.exchanges)
        CountExchange(request, exchange, &exchange == &request.exchanges.back());
    if (!request.IsSendRecv() || request.is_raw) return;
    request_times_.Add(request.DurationUs());
    KeepIfSlow(request);
}

void Summary::KeepIfSlow(const Request& request) {
    const std::uint64_t duration = request.DurationUs();
    if (most_slowest_ == 0) return;
    if (slowest_.size() == most_slowest_) {
        if (duration <= slowest_.front().duration_us) return;
        std::pop_heap(slowest_.begin(), slowest_.end(), IsFaster);
        slowest_.pop_back();
    }
    const std::uint64_t first_us = sessions_.All().empty() ? 0 : sessions_.All().back().first_us;
    slowest_.push_back({duration, request.queued_us - std::min(first_us, request.queued_us),
                        request.process, request.cop, AddressText(request),
                        RequestText(request, kShownBytes), OutcomeText(request)});
    std::push_heap(slowest_.begin(), slowest_.end(), IsFaster);
}

std::vector<const SlowRequest*> Summary::Slowest() const {
    std::vector<const SlowRequest*> order;
    order.reserve(slowest_.size());
    for (const SlowRequest& request : slowest_)
        order.push_back(&request);
    std::sort(order.begin(), order.end(), [](const SlowRequest* a, const SlowRequest* b) {
        if (a->duration_us != b->duration_us) return a->duration_us > b->duration_us;
        return std::pair(a->process, a->cop) < std::pair(b->process, b->cop);
    });
    return order;
}

std::uint64_t Summary::Requests() const { return SumOf(by_type_); }

std::uint64_t Summary::DurationUs() const {
    std::uint64_t sum = 0;
    for (const Session& session : sessions_.All())
        sum += session.last_us - session.first_us;
    return sum;
}

// ---- text

std::vector<Row> Summary::TotalRows() const {
    std::vector<Row> rows;
    rows.push_back({"Duration", SecondsText(DurationUs(), 3) + " s in " +
                                    CountText(sessions_.All().size()) +
                                    (sessions_.All().size() == 1 ? " session" : " sessions")});
    rows.push_back({"Lines", CountText(records_) +
                                 (cut_ > 0 ? ", " + CountText(cut_) + " cut by the library" : "")});
    rows.push_back({"Requests", CountWithParts(Requests(), by_type_, ComPrimitiveTypeText)});
    rows.push_back({"  finished", CountText(finished_)});
    rows.push_back({"  cancelled", CountText(cancelled_)});
    rows.push_back({"  no end recorded", CountText(unfinished_)});
    rows.push_back({"  with errors", CountWithParts(with_errors_, errors_, ErrorText)});
    rows.push_back({"Time-outs", CountText(time_outs_)});
    rows.push_back({"Retries", CountText(retries_)});
    rows.push_back({"Negative answers", CountWithParts(SumOf(negative_), negative_, NegativeName)});
    rows.push_back(
        {"Busy", CountText(busy_) +
                     (busy_reason_.empty() ? "" : ", last reason: " + OnOneLine(busy_reason_))});
    if (stray_answers_ > 0) rows.push_back({"Stray answers", CountText(stray_answers_)});
    rows.push_back({"Callbacks", CountText(callback_times_.Count()) + ", longest " +
                                     MsText(callback_times_.MaxUs()) + " ms"});
    return rows;
}

std::vector<Row> Summary::SessionRows() const {
    std::vector<Row> rows = {{"PROCESS", "SESSION", "LINES", "SECONDS", "END"}};
    for (const Session& session : sessions_.All()) {
        rows.push_back(
            {CountText(session.process), session.number == 0 ? "-" : CountText(session.number),
             CountText(session.records), SecondsText(session.last_us - session.first_us, 3),
             session.was_stopped ? "stopped" : "missing"});
    }
    return rows;
}

std::vector<Row> Summary::LinkRows() const {
    std::vector<Row> rows = {
        {"MODULE", "LINK", "REQUESTS", "WITH ERRORS", "RAW SENT", "RAW RECEIVED"}};
    for (const auto& [key, link] : links_) {
        rows.push_back({CountText(key.first), CountText(key.second), CountText(link.requests),
                        CountText(link.errors), CountText(link.raw_sent),
                        CountText(link.raw_received)});
    }
    return rows;
}

std::vector<Row> Summary::UnitRows() const {
    std::vector<Row> rows = {
        {"ADDRESS", "ASKED", "ANSWERS", "NEGATIVE", "SILENT", "MIN", "AVG", "MAX", "P95"}};
    for (const auto& [key, unit] : units_) {
        Row row = {UnitText(key), CountText(unit.requests), CountText(unit.answers),
                   key.is_functional ? "-" : CountText(unit.negative), CountText(unit.time_outs)};
        AppendTimes(unit.answer_times, &row);
        rows.push_back(row);
    }
    return rows;
}

std::vector<Row> Summary::SlowRows() const {
    std::vector<Row> rows = {{"MS", "AT S", "PROCESS", "COP", "ADDRESS", "REQUEST", "OUTCOME"}};
    for (const SlowRequest* request : Slowest()) {
        rows.push_back({MsText(request->duration_us), SecondsText(request->start_us, 3),
                        CountText(request->process), CountText(request->cop), request->address,
                        request->request, request->outcome});
    }
    return rows;
}

std::vector<Row> Summary::RawRows() const {
    std::vector<Row> rows = {{"IDENTIFIER", "DIRECTION", "FRAMES"}};
    for (const auto& [key, count] : raw_) {
        rows.push_back({CanIdText(key.first), key.second ? "sent" : "received", CountText(count)});
    }
    return rows;
}

std::vector<Row> Summary::TelemetryRows() const {
    std::vector<Row> rows = {{"VALUE", "LEAST", "GREATEST", "LAST"}};
    for (const TelemetryName& name : kTelemetryNames) {
        const auto found = telemetry_.find(name.field);
        if (found == telemetry_.end()) continue;
        const Extremes& value = found->second;
        rows.push_back({name.name, std::to_string(value.least), std::to_string(value.greatest),
                        std::to_string(value.last)});
    }
    return rows;
}

std::vector<Row> Summary::CloudRows() const {
    std::vector<Row> rows = {{"DIRECTION", "TYPE", "PACKETS", "BYTES"}};
    for (const auto& [key, figures] : cloud_) {
        rows.push_back({OnOneLine(key.first), OnOneLine(key.second), CountText(figures.packets),
                        CountText(figures.bytes)});
    }
    return rows;
}

void Summary::PrintText(Output* output) const {
    output->Table(TotalRows());
    PrintPart("Sessions", SessionRows(), true, output);
    PrintPart("Links", LinkRows(), true, output);
    PrintPart("Control units (times from request to answer in ms)", UnitRows(), true, output);
    PrintPart("Slowest requests (from start to end)", SlowRows(), true, output);
    PrintPart("Raw frames", RawRows(), true, output);
    const std::string telemetry = "Telemetry (" + CountText(telemetry_reports_) + " reports)";
    PrintPart(telemetry.c_str(), TelemetryRows(), true, output);
    PrintPart("Cloud packets", CloudRows(), true, output);
}

// ---- JSON

Json Summary::Document() const {
    Json types = Json::object();
    for (const auto& [type, count] : by_type_)
        types[ComPrimitiveTypeText(type)] = count;
    Json errors = Json::array();
    for (const auto& [code, count] : errors_)
        errors.push_back({{"code", code}, {"meaning", ErrorText(code)}, {"count", count}});
    Json negative = Json::array();
    for (const auto& [code, count] : negative_) {
        negative.push_back(
            {{"code", code}, {"name", NegativeResponseName(code)}, {"count", count}});
    }
    Json sessions = Json::array();
    for (const Session& session : sessions_.All()) {
        sessions.push_back({{"process", session.process},
                            {"session", session.number},
                            {"lines", session.records},
                            {"durationUs", session.last_us - session.first_us},
                            {"stopped", session.was_stopped}});
    }
    Json links = Json::array();
    for (const auto& [key, link] : links_) {
        links.push_back({{"module", key.first},
                         {"link", key.second},
                         {"requests", link.requests},
                         {"withErrors", link.errors},
                         {"rawSent", link.raw_sent},
                         {"rawReceived", link.raw_received}});
    }
    Json units = Json::array();
    for (const auto& [key, unit] : units_) {
        Json one = {{"requestId", CanIdText(key.request_id)}};
        if (!key.is_functional) one["responseId"] = CanIdText(key.response_id);
        one.update({{"functional", key.is_functional},
                    {"asked", unit.requests},
                    {"answers", unit.answers},
                    {"negative", unit.negative},
                    {"silent", unit.time_outs},
                    {"answerTime", TimesJson(unit.answer_times)}});
        units.push_back(one);
    }
    Json slowest = Json::array();
    for (const SlowRequest* request : Slowest()) {
        slowest.push_back({{"durationUs", request->duration_us},
                           {"startUs", request->start_us},
                           {"process", request->process},
                           {"comPrimitive", request->cop},
                           {"address", request->address},
                           {"request", request->request},
                           {"outcome", request->outcome}});
    }
    Json raw = Json::array();
    for (const auto& [key, count] : raw_) {
        raw.push_back({{"id", CanIdText(key.first)}, {"sent", key.second}, {"frames", count}});
    }
    Json telemetry = {{"reports", telemetry_reports_}, {"values", Json::object()}};
    for (const TelemetryName& name : kTelemetryNames) {
        const auto found = telemetry_.find(name.field);
        if (found == telemetry_.end()) continue;
        telemetry["values"][name.name] = {{"least", found->second.least},
                                          {"greatest", found->second.greatest},
                                          {"last", found->second.last}};
    }
    Json cloud = Json::array();
    for (const auto& [key, figures] : cloud_) {
        cloud.push_back({{"direction", key.first},
                         {"type", key.second},
                         {"packets", figures.packets},
                         {"bytes", figures.bytes}});
    }
    return {{"lines", records_},
            {"cutLines", cut_},
            {"damagedLines", damaged_},
            {"unknownLines", unknown_},
            {"durationUs", DurationUs()},
            {"sessions", sessions},
            {"requests",
             {{"count", Requests()},
              {"types", types},
              {"finished", finished_},
              {"cancelled", cancelled_},
              {"unfinished", unfinished_},
              {"withErrors", with_errors_},
              {"errors", errors},
              {"timeOuts", time_outs_},
              {"retries", retries_},
              {"negative", negative},
              {"busy", busy_},
              {"busyReason", busy_reason_},
              {"strayAnswers", stray_answers_},
              {"time", TimesJson(request_times_)}}},
            {"callbackTime", TimesJson(callback_times_)},
            {"links", links},
            {"controlUnits", units},
            {"slowest", slowest},
            {"rawFrames", raw},
            {"telemetry", telemetry},
            {"cloudPackets", cloud}};
}

void Summary::Print(Output* output) const {
    if (output->AsJson()) {
        output->Document(Document());
    } else {
        PrintText(output);
    }
}

}  // namespace dpdu::trace
