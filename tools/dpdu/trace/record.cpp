#include "trace/record.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

namespace dpdu::trace {
namespace {

struct FieldName {
    std::string_view name;  // after the name of the object that contains it: "q.cr"
    Field field;
};

// Sorted by name.
constexpr FieldName kFieldNames[] = {
    {"acc", Field::kAcceptance},
    {"canFuncReqId", Field::kFunctionalId},
    {"canPhysReqId", Field::kPhysicalId},
    {"canRespUSDTId", Field::kResponseId},
    {"can_id_rx", Field::kSentResponseId},
    {"can_id_tx_func", Field::kSentFunctionalId},
    {"can_id_tx_phys", Field::kSentPhysicalId},
    {"copType", Field::kCopType},
    {"dur_us", Field::kDurationUs},
    {"err", Field::kError},
    {"final", Field::kFinalState},
    {"from", Field::kFrom},
    {"hCLL", Field::kLink},
    {"hCoP", Field::kCop},
    {"hMod", Field::kModule},
    {"i.mx", Field::kTelemetryMx},
    {"i.ru", Field::kTelemetryRu},
    {"i.si", Field::kTelemetrySi},
    {"idx", Field::kIndex},
    {"len", Field::kLength},
    {"numRecv", Field::kReceiveCycles},
    {"numSend", Field::kSendCycles},
    {"pid", Field::kProcess},
    {"q.can", Field::kTelemetryCan},
    {"q.cr", Field::kTelemetryCr},
    {"q.ct", Field::kTelemetryCt},
    {"raw", Field::kIsRaw},
    {"req_id", Field::kRequestId},
    {"rhz", Field::kTelemetryRhz},
    {"rt", Field::kTelemetryRt},
    {"rx_hex_len", Field::kRxHexLength},
    {"rx_len", Field::kRxLength},
    {"seq", Field::kSeq},
    {"session", Field::kSession},
    {"t0_us", Field::kBeginUs},
    {"tasks", Field::kTelemetryTasks},
    {"tick_ms", Field::kTickMs},
    {"tid", Field::kThread},
    {"timeout", Field::kTimeoutMs},
    {"to", Field::kTo},
    {"ts_us", Field::kTimeUs},
    {"tx_hex_len", Field::kTxHexLength},
    {"tx_len", Field::kTxLength},
    {"u", Field::kTelemetryU},
    {"uniq", Field::kUnique},
    {"v", Field::kTelemetryV},
    {"wait_time", Field::kWaitTime},
};
static_assert(std::is_sorted(std::begin(kFieldNames), std::end(kFieldNames),
                             [](const FieldName& a, const FieldName& b) {
                                 return a.name < b.name;
                             }));

std::optional<Field> FieldOf(std::string_view name) {
    const FieldName* const found = std::lower_bound(
        std::begin(kFieldNames), std::end(kFieldNames), name,
        [](const FieldName& row, std::string_view wanted) { return row.name < wanted; });
    if (found == std::end(kFieldNames) || found->name != name) return std::nullopt;
    return found->field;
}

struct EventRow {
    std::string_view name;
    Event event;
    bool is_of_cop;               // carries the three handles
    std::vector<Field> required;  // besides the handles and the fields that every line has
};

const EventRow kEvents[] = {
    {"log_start", Event::kLogStart, false, {Field::kSession}},
    {"log_stop", Event::kLogStop, false, {}},
    {"cop_start",
     Event::kCopStart,
     true,
     {Field::kCopType, Field::kTxLength, Field::kTxHexLength, Field::kSendCycles,
      Field::kReceiveCycles}},
    {"cop_sendrecv_meta",
     Event::kSendRecvMeta,
     true,
     {Field::kIsRaw, Field::kFunctionalId, Field::kPhysicalId, Field::kResponseId}},
    {"cop_expected_responses", Event::kExpectedResponses, true, {}},
    {"cop_ecu_candidate",
     Event::kEcuCandidate,
     true,
     {Field::kIndex, Field::kPhysicalId, Field::kResponseId}},
    {"cop_cancel_req", Event::kCancelRequest, true, {}},
    {"cop_cancel_result", Event::kCancelResult, true, {}},
    {"cop_state", Event::kCopState, true, {Field::kFrom, Field::kTo}},
    {"cop_rx",
     Event::kCopRx,
     true,
     {Field::kUnique, Field::kAcceptance, Field::kRxLength, Field::kRxHexLength}},
    {"cop_error", Event::kCopError, true, {Field::kError}},
    {"notify_begin", Event::kNotifyBegin, true, {}},
    {"notify_end", Event::kNotifyEnd, true, {Field::kBeginUs, Field::kDurationUs}},
    {"cop_free", Event::kCopFree, true, {Field::kFinalState}},
    {"item_destroy", Event::kItemDestroy, false, {Field::kCop}},
    {"comm_req_sent",
     Event::kRequestSent,
     false,
     {Field::kRequestId, Field::kTxLength, Field::kTxHexLength, Field::kSentFunctionalId,
      Field::kSentPhysicalId, Field::kSentResponseId, Field::kTimeoutMs}},
    {"comm_res_received",
     Event::kResponseReceived,
     false,
     {Field::kRequestId, Field::kWaitTime, Field::kRxLength, Field::kRxHexLength}},
    {"busy_received", Event::kBusyReceived, false, {Field::kRequestId}},
    {"cloud_pkt", Event::kCloudPacket, false, {Field::kLength}},
    {"telemetry",
     Event::kTelemetry,
     false,
     {Field::kTelemetryV, Field::kTelemetryU, Field::kTelemetryRt, Field::kTelemetryRhz,
      Field::kTelemetryTasks, Field::kTelemetryCr, Field::kTelemetryCt, Field::kTelemetryCan,
      Field::kTelemetrySi, Field::kTelemetryMx, Field::kTelemetryRu}},
};

// In a truncated line only the fields before its bytes are left.
bool StandsBehindTheBytes(Event event, Field field) {
    switch (field) {
        case Field::kTxHexLength:
        case Field::kRxHexLength:
        case Field::kSendCycles:
        case Field::kReceiveCycles:
        case Field::kSentFunctionalId:
        case Field::kSentPhysicalId:
        case Field::kSentResponseId:
        case Field::kTimeoutMs:
            return true;
        default:
            return event == Event::kTelemetry;
    }
}

const EventRow* FindEvent(std::string_view name) {
    for (const EventRow& row : kEvents) {
        if (row.name == name) return &row;
    }
    return nullptr;
}

// Times are limited so that the difference of any two fits; telemetry may be any value that the
// dongle reports; everything else is a 32-bit number.
bool IsInRange(Field field, std::int64_t value) {
    constexpr std::int64_t kLatest = std::int64_t{1} << 62;
    switch (field) {
        case Field::kSeq:
        case Field::kTimeUs:
        case Field::kTickMs:
        case Field::kBeginUs:
        case Field::kDurationUs:
            return value >= 0 && value <= kLatest;
        case Field::kTelemetryV:
        case Field::kTelemetryU:
        case Field::kTelemetryRt:
        case Field::kTelemetryRhz:
        case Field::kTelemetryCr:
        case Field::kTelemetryCt:
        case Field::kTelemetryCan:
        case Field::kTelemetrySi:
        case Field::kTelemetryMx:
        case Field::kTelemetryRu:
            return true;
        default:
            return value >= 0 && value <= UINT32_MAX;
    }
}

// Takes a line's fields directly from the parser, without building a document: a trace has millions
// of lines.
class LineHandler : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit LineHandler(Record* record) : record_(record) {}

    const std::string& EventName() const { return event_name_; }

    bool null() override { return true; }
    bool boolean(bool value) override { return Take(value ? 1 : 0); }
    bool number_integer(std::int64_t value) override { return Take(value); }
    bool number_unsigned(std::uint64_t value) override {
        if (value > INT64_MAX) return !IsOfKnownField();
        return Take(static_cast<std::int64_t>(value));
    }
    bool number_float(double, const std::string&) override { return !IsOfKnownField(); }
    bool string(std::string& value) override { return IsAtTop() ? TakeText(value) : true; }
    bool binary(nlohmann::json::binary_t&) override { return false; }
    bool start_object(std::size_t) override {
        ++depth_;
        return true;
    }
    bool key(std::string& name) override {
        if (IsAtTop()) {
            object_ = name;
            key_ = name;
        } else {
            key_ = object_ + "." + name;
        }
        return true;
    }
    bool end_object() override {
        --depth_;
        return true;
    }
    bool start_array(std::size_t) override {
        ++arrays_;
        return true;
    }
    bool end_array() override {
        --arrays_;
        return true;
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception&) override {
        return false;
    }

private:
    bool IsAtTop() const { return depth_ == 1 && arrays_ == 0; }

    bool IsOfKnownField() const { return arrays_ == 0 && depth_ <= 2 && FieldOf(key_); }

    bool Take(std::int64_t value) {
        if (arrays_ > 0 || depth_ > 2) return true;
        const std::optional<Field> field = FieldOf(key_);
        if (!field) return true;
        if (!IsInRange(*field, value)) return false;
        record_->Set(*field, value);
        return true;
    }

    bool TakeText(std::string& value) {
        if (key_ == "ev") {
            event_name_ = value;
        } else if (key_ == "tx_hex" || key_ == "rx_hex" || key_ == "hex") {
            std::optional<Bytes> bytes = ParseHex(value);
            if (!bytes) return false;
            record_->data = std::move(*bytes);
        } else if (key_ == "reason") {
            record_->reason = value;
        } else if (key_ == "dir") {
            record_->direction = value;
        } else if (key_ == "type_str") {
            record_->type = value;
        }
        return true;
    }

    Record* record_;
    std::string event_name_;
    std::string object_;
    std::string key_;
    int depth_ = 0;
    int arrays_ = 0;
};

// The library truncates lines that do not fit into its 1024-byte buffer.
constexpr std::size_t kCutLineLength = 1023;

// The bytes of a line truncated within them; ignores a single last digit.
std::optional<Bytes> BytesAtTheEnd(std::string_view line) {
    const std::size_t quote = line.rfind('"');
    if (quote == std::string_view::npos) return std::nullopt;
    const std::string_view before = line.substr(0, quote);
    if (!before.ends_with("x_hex\":")) return std::nullopt;
    const std::string_view digits = line.substr(quote + 1);
    return ParseHex(std::string(digits.substr(0, digits.size() / 2 * 2)));
}

// True if the record has all required numbers and as many bytes as it states.
bool IsComplete(const EventRow& row, const Record& record) {
    const auto is_there = [&](Field field) {
        return record.Has(field) || (record.was_cut && StandsBehindTheBytes(row.event, field));
    };
    for (const Field field : {Field::kSeq, Field::kTimeUs, Field::kProcess, Field::kThread}) {
        if (!record.Has(field)) return false;
    }
    for (const Field field : {Field::kModule, Field::kLink, Field::kCop}) {
        if (row.is_of_cop && !record.Has(field)) return false;
    }
    if (!std::all_of(row.required.begin(), row.required.end(), is_there)) return false;
    for (const Field field : {Field::kTxHexLength, Field::kRxHexLength}) {
        if (record.Has(field) && record.U32(field) != record.data.size()) return false;
    }
    for (const Field field : {Field::kTxLength, Field::kRxLength}) {
        if (record.Has(field) && record.U32(field) < record.data.size()) return false;
    }
    return true;
}

}  // namespace

LineKind ParseLine(std::string_view line, Record* record) {
    *record = {};
    LineHandler handler(record);
    if (!nlohmann::json::sax_parse(line.begin(), line.end(), &handler)) {
        if (line.size() != kCutLineLength) return LineKind::kDamaged;
        if (record->data.empty()) {
            std::optional<Bytes> bytes = BytesAtTheEnd(line);
            if (!bytes) return LineKind::kDamaged;
            record->data = std::move(*bytes);
        }
        record->was_cut = true;
    }
    if (handler.EventName().empty()) return LineKind::kDamaged;
    const EventRow* row = FindEvent(handler.EventName());
    if (row == nullptr) return record->was_cut ? LineKind::kDamaged : LineKind::kUnknownEvent;
    record->event = row->event;
    return IsComplete(*row, *record) ? LineKind::kRecord : LineKind::kDamaged;
}

}  // namespace dpdu::trace
