#include "report/report_data.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "trace/text.h"
#include "trace/timeline.h"
#include "uds/answers.h"
#include "uds/ecu_address.h"
#include "uds/services.h"

namespace dpdu::report {
namespace {

using trace::Event;
using trace::Field;

// A chunk is decoded at once by the page.
constexpr std::size_t kMostRows = 65'536;
constexpr std::size_t kMostPayloadBytes = 4'000'000;

// Flags of the tables' rows; viewer/src/data.ts has the same.
enum RequestFlag : std::uint8_t {
    kIsRaw = 1,
    kIsFinished = 2,
    kIsCancelled = 4,
    kIsProblem = 8,
};
enum SpanFlag : std::uint8_t { kIsFunctional = 1, kIsAgain = 2 };
enum FrameFlag : std::uint8_t { kIsSent = 1, kIs29Bit = 2 };

void AppendBigEndian(std::uint32_t value, Bytes* bytes) {
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes->push_back(static_cast<std::uint8_t>(value >> shift & 0xFF));
}

// The control units that may answer: a pair of identifiers each, request before response.
trace::Payload UnitsOf(const trace::Request& request) {
    trace::Payload units;
    for (const trace::ControlUnit& unit : request.units) {
        AppendBigEndian(unit.request_id, &units.bytes);
        AppendBigEndian(unit.response_id, &units.bytes);
    }
    units.length = static_cast<std::uint32_t>(units.bytes.size());
    return units;
}

std::uint8_t NegativeCode(const Bytes& answer) {
    const auto negative = ParseNegativeResponse(answer);
    return negative ? negative->code : 0;
}

Json LinesJson(const trace::LineCount& lines) {
    return {{"count", lines.count}, {"first", lines.first}};
}

template <typename Name>
Json Names(std::uint32_t from, std::uint32_t to, const Name& name) {
    Json names = Json::object();
    for (std::uint32_t number = from; number <= to; ++number) {
        const std::string text = name(number);
        if (!text.empty()) names[std::to_string(number)] = text;
    }
    return names;
}

constexpr std::uint32_t kLastByte = 0xFF;
constexpr std::uint32_t kLastIdentifier = 0xFFFF;

// Empty if the standard has none, for which the other functions have a placeholder.
std::string NameUnless(const std::string& placeholder, const std::string& text) {
    return text.starts_with(placeholder) ? "" : text;
}

Json ServiceNames() {
    return Names(0, kLastByte, [](std::uint32_t service) {
        return NameUnless("service 0x", ServiceName(static_cast<std::uint8_t>(service)));
    });
}

Json SubFunctionNames() {
    constexpr std::uint32_t kLastSubFunction = 0x7F;
    Json services = Json::object();
    for (std::uint32_t number = 0; number <= kLastByte; ++number) {
        const auto service = static_cast<std::uint8_t>(number);
        if (!HasSubFunction(service)) continue;
        services[std::to_string(number)] = Names(0, kLastSubFunction, [service](std::uint32_t sub) {
            return NameUnless("sub-function",
                              SubFunctionName(service, static_cast<std::uint8_t>(sub)));
        });
    }
    return services;
}

Json NegativeResponseNames() {
    return Names(1, kLastByte, [](std::uint32_t code) {
        return NameUnless("unknown code", NegativeResponseName(static_cast<std::uint8_t>(code)));
    });
}

}  // namespace

std::string ScriptText(const Json& document) {
    // A path need not be UTF-8.
    const std::string text = document.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string safe;
    for (const char c : text) {
        if (c == '<') {
            safe += "\\u003c";
        } else {
            safe += c;
        }
    }
    return safe;
}

ReportData::ReportData(ChunkHandler handler) : handler_(std::move(handler)), tracker_(this) {
    using enum ColumnKind;
    tables_ = {
        {"requests", {{"file", kNumber},    {"process", kNumber},  {"module", kNumber},
                      {"link", kNumber},    {"cop", kNumber},      {"type", kNumber},
                      {"flags", kByte},     {"queued", kTime},     {"started", kTime},
                      {"finished", kTime},  {"end", kTime},        {"results", kNumber},
                      {"busy", kNumber},    {"strays", kNumber},   {"error", kNumber},
                      {"payload", kNumber}, {"recorded", kNumber}, {"length", kNumber},
                      {"units", kNumber},   {"unitBytes", kNumber}}},
        {"spans",
         {{"request", kNumber},
          {"sent", kTime},
          {"answered", kTime},
          {"requestId", kNumber},
          {"responseId", kNumber},
          {"timeout", kNumber},
          {"result", kByte},
          {"nrc", kByte},
          {"flags", kByte},
          {"payload", kNumber},
          {"recorded", kNumber},
          {"length", kNumber}}},
        {"frames",
         {{"time", kTime},
          {"flags", kByte},
          {"id", kNumber},
          {"module", kNumber},
          {"payload", kNumber},
          {"recorded", kNumber},
          {"length", kNumber}}},
        {"packets", {{"time", kTime}, {"flags", kByte}, {"type", kNumber}, {"length", kNumber}}},
        {"callbacks", {{"request", kNumber}, {"begin", kTime}, {"duration", kNumber}}},
    };
}

void ReportData::BeginFile(const std::string& path) { files_.push_back({path, {}, {}}); }

void ReportData::Take(const trace::Record& record) {
    if (record.event == Event::kLogStart) tracker_.Finish();
    files_.back().sessions.Take(record);
    if (record.event == Event::kCloudPacket) AddPacket(record);
    tracker_.Take(record);
    HandOnIfLarge();
}

void ReportData::EndOfFile(const trace::ReadReport& report) {
    tracker_.Finish();
    files_.back().report = report;
}

void ReportData::Finish() { HandOn(); }

ReportData::Place ReportData::Keep(const trace::Payload& payload) {
    const std::string text(payload.bytes.begin(), payload.bytes.end());
    const auto [known, is_new] = known_.try_emplace(text, payloads_.size());
    if (is_new) payloads_ += text;
    return {known->second, text.size(), payload.length};
}

void ReportData::AddSpan(const trace::Exchange& exchange, bool is_again, std::uint32_t response_id,
                         const trace::Payload& answer) {
    const Place place = Keep(answer);
    const auto flags = static_cast<std::uint64_t>((exchange.is_functional ? kIsFunctional : 0) |
                                                  (is_again ? kIsAgain : 0));
    At(kSpans).Add({requests_, exchange.sent_us, exchange.answered_us, exchange.request_id,
                    response_id, exchange.timeout_ms, static_cast<std::uint64_t>(exchange.result),
                    NegativeCode(answer.bytes), flags, place.at, place.recorded, place.length});
}

// Each control unit that answered a functional request has a span of its own.
void ReportData::AddSpans(const trace::Request& request) {
    bool is_again = false;
    for (const trace::Exchange& exchange : request.exchanges) {
        for (const trace::UnitAnswer& answer : exchange.answers) {
            const bool is_known = answer.position < request.units.size();
            AddSpan(exchange, is_again, is_known ? request.units[answer.position].response_id : 0,
                    answer.payload);
        }
        if (exchange.answers.empty())
            AddSpan(exchange, is_again, exchange.response_id, exchange.answer);
        is_again = true;
    }
}

void ReportData::OnRequest(const trace::Request& request) {
    AddSpans(request);
    for (const trace::CallbackTime& time : request.callbacks)
        At(kCallbacks).Add({requests_, time.begin_us, time.length_us});
    types_.insert(request.type);
    const std::uint32_t error = request.errors.empty() ? 0 : request.errors.back();
    if (!request.errors.empty()) errors_.insert(error);
    const auto flags = static_cast<std::uint64_t>(
        (request.is_raw ? kIsRaw : 0) | (request.IsFinished() ? kIsFinished : 0) |
        (request.IsCancelled() ? kIsCancelled : 0) | (trace::IsProblem(request) ? kIsProblem : 0));
    const Place sent = Keep(request.sent);
    const Place units = Keep(UnitsOf(request));
    At(kRequests).Add(
        {files_.size() - 1,  request.process,       request.module,  request.link,
         request.cop,        request.type,          flags,           request.queued_us,
         request.started_us, request.finished_us,   request.EndUs(), request.results,
         request.busy,       request.stray_answers, error,           sent.at,
         sent.recorded,      sent.length,           units.at,        units.recorded});
    ++requests_;
}

void ReportData::OnRawFrame(const trace::Request& request, const trace::RawFrame& frame) {
    const auto length = static_cast<std::uint32_t>(frame.data.size());
    const Place place = Keep({frame.data, length});
    const auto flags = static_cast<std::uint64_t>((frame.is_sent ? kIsSent : 0) |
                                                  (frame.can_id > kLargest11BitId ? kIs29Bit : 0));
    At(kFrames).Add({frame.time_us, flags, frame.can_id, request.module, place.at, place.recorded,
                     place.length});
}

void ReportData::AddPacket(const trace::Record& record) {
    const auto [type, is_new] = packet_types_.try_emplace(record.type, packet_types_.size());
    const bool is_sent = record.direction == "tx";
    At(kPackets).Add({record.TimeUs(), is_sent ? std::uint64_t{kIsSent} : 0, type->second,
                      record.U32(Field::kLength)});
}

void ReportData::HandOnIfLarge() {
    const bool is_large = payloads_.size() >= kMostPayloadBytes ||
                          std::any_of(tables_.begin(), tables_.end(),
                                      [](const Table& table) { return table.Rows() >= kMostRows; });
    if (is_large) HandOn();
}

void ReportData::HandOn() {
    Chunk chunk;
    for (Table& table : tables_) {
        chunk.rows.push_back(table.Rows());
        table.MoveTo(&chunk.bytes);
    }
    chunk.bytes += payloads_;
    payloads_.clear();
    known_.clear();
    handler_(chunk);
}

Json ReportData::Layout() const {
    Json tables = Json::array();
    for (const Table& table : tables_) {
        Json columns = Json::array();
        for (const Column& column : table.Columns())
            columns.push_back({column.name, ColumnKindName(column.kind)});
        tables.push_back({{"name", table.Name()}, {"columns", columns}});
    }
    return tables;
}

Json ReportData::Facts(bool has_calendar_time) const {
    Json files = Json::array();
    for (const File& file : files_) {
        Json sessions = Json::array();
        for (const trace::Session& session : file.sessions.All()) {
            sessions.push_back({{"process", session.process},
                                {"number", session.number},
                                {"first", session.first_us},
                                {"last", session.last_us},
                                {"wasStopped", session.was_stopped}});
        }
        files.push_back({{"path", file.path},
                         {"records", file.report.records},
                         {"cut", file.report.cut},
                         {"damaged", LinesJson(file.report.damaged)},
                         {"unknown", LinesJson(file.report.unknown)},
                         {"sessions", sessions}});
    }
    Json types = Json::object();
    for (const std::uint32_t type : types_)
        types[std::to_string(type)] = trace::ComPrimitiveTypeText(type);
    Json errors = Json::object();
    for (const std::uint32_t error : errors_)
        errors[std::to_string(error)] = trace::ErrorText(error);
    Json packet_types = Json::array();
    for (std::size_t i = 0; i < packet_types_.size(); ++i)
        packet_types.push_back("");
    for (const auto& [text, number] : packet_types_)
        packet_types[static_cast<std::size_t>(number)] = text;
    return {{"program", "dpdu " DPDU_VERSION},
            {"hasCalendarTime", has_calendar_time},
            {"files", files},
            {"types", types},
            {"errors", errors},
            {"packetTypes", packet_types},
            {"services", ServiceNames()},
            {"subFunctions", SubFunctionNames()},
            {"negativeResponses", NegativeResponseNames()},
            {"identifiers", Names(0, kLastIdentifier,
                                  [](std::uint32_t id) {
                                      return DataIdentifierName(static_cast<std::uint16_t>(id));
                                  })},
            {"routines", Names(0, kLastIdentifier, [](std::uint32_t id) {
                 return RoutineName(static_cast<std::uint16_t>(id));
             })}};
}

}  // namespace dpdu::report
