#include "replay/recording.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "protocol/describe.h"

namespace brennix {

namespace {

// Requests that are equal in these first bytes are compared one by one.
constexpr std::size_t kKeyBytes = 16;
// An answer that appears just before its request belongs to that request: the receiving thread may
// report before the sending one.
constexpr std::uint64_t kReportingDelayUs = 100'000;
constexpr std::size_t kMaxRequestSize = 0xFFFF;

// What is known about one ComPrimitive so far.
struct Primitive {
    bool is_raw = false;
    std::uint32_t functional_id = 0;
    std::uint32_t physical_id = 0;
    std::uint32_t response_id = 0;
    // From its table of control units, in order; repeated response ids are left out.
    std::vector<std::pair<std::uint32_t, std::uint32_t>> candidates;
    std::size_t exchange = SIZE_MAX;  // the last one
    std::uint64_t sent_us = 0;
    std::optional<TraceEvent> early;  // an answer whose request has not appeared yet
};

std::string Key(bool is_multi, std::uint32_t request_id, std::uint32_t response_id,
                std::size_t size, ByteSpan data) {
    return std::to_string(is_multi) + " " + std::to_string(request_id) + " " +
           std::to_string(is_multi ? 0 : response_id) + " " + std::to_string(size) + " " +
           ToHex(data.first(std::min({data.size(), size, kKeyBytes})));
}

class Builder {
public:
    explicit Builder(const RecordingOptions& options) : options_(options) {}

    void Add(const TraceEvent& event) {
        if (begin_us_ == 0) begin_us_ = event.time_us;
        for (const auto& [name, take] : kTakers) {
            if (event.name == name) (this->*take)(event);
        }
    }

    Recording Finish() {
        for (auto& [handle, primitive] : primitives_)
            DropEarly(&primitive);
        return std::move(result_);
    }

private:
    struct Taker {
        const char* name;
        void (Builder::*take)(const TraceEvent&);
    };

    Primitive& Of(const TraceEvent& event) { return primitives_[event.Number("hCoP")]; }

    void TakeStart(const TraceEvent& event) {
        DropEarly(&Of(event));
        Of(event) = {};
    }

    void TakeMeta(const TraceEvent& event) {
        Primitive& primitive = Of(event);
        const auto raw = event.fields.find("raw");
        primitive.is_raw = raw != event.fields.end() && *raw == true;
        primitive.functional_id = event.Number("canFuncReqId");
        primitive.physical_id = event.Number("canPhysReqId");
        primitive.response_id = event.Number("canRespUSDTId");
        if (primitive.is_raw && listening_us_ == 0) listening_us_ = event.time_us;
    }

    void TakeCandidate(const TraceEvent& event) {
        auto& candidates = Of(event).candidates;
        const std::uint32_t response_id = event.Number("canRespUSDTId");
        const auto same = [&](const auto& other) { return other.second == response_id; };
        if (std::any_of(candidates.begin(), candidates.end(), same)) return;
        candidates.emplace_back(event.Number("canPhysReqId"), response_id);
    }

    void TakeRequest(const TraceEvent& event);
    void TakeAnswer(const TraceEvent& event);
    void TakeBusy(const TraceEvent& event);
    void TakeResult(const TraceEvent& event);
    void TakeTelemetry(const TraceEvent& event);

    void AddAnswer(const Primitive& primitive, const TraceEvent& event);
    void ReadEntries(const Primitive& primitive, const TraceEvent& event, RecordedPacket* packet);
    static RecordedEntry MakeEntry(const Primitive& primitive, std::uint32_t position,
                                   ByteSpan data);
    void AddMultiResult(const Primitive& primitive, const TraceEvent& event);
    void AddFrame(const TraceEvent& event);
    void DropEarly(Primitive* primitive);
    std::optional<Bytes> WholeBytes(const TraceEvent& event);

    RecordedExchange* ExchangeOf(const Primitive& primitive) {
        if (primitive.exchange >= result_.exchanges.size()) return nullptr;
        return &result_.exchanges[primitive.exchange];
    }
    std::uint32_t Milliseconds(std::uint64_t from_us, std::uint64_t to_us) const {
        if (to_us <= from_us || options_.speed == 0) return 0;
        const double ms = static_cast<double>(to_us - from_us) / 1000 / options_.speed;
        return static_cast<std::uint32_t>(std::min(ms, 4e9));
    }

    static const std::initializer_list<Taker> kTakers;

    const RecordingOptions options_;
    Recording result_;
    std::map<std::uint32_t, Primitive> primitives_;  // by handle, which is also the request id
    std::uint64_t begin_us_ = 0;
    std::uint64_t listening_us_ = 0;  // since when raw frames are received
};

const std::initializer_list<Builder::Taker> Builder::kTakers = {
    {"cop_start", &Builder::TakeStart},
    {"cop_sendrecv_meta", &Builder::TakeMeta},
    {"cop_ecu_candidate", &Builder::TakeCandidate},
    {"comm_req_sent", &Builder::TakeRequest},
    {"comm_res_received", &Builder::TakeAnswer},
    {"busy_received", &Builder::TakeBusy},
    {"cop_rx", &Builder::TakeResult},
    {"telemetry", &Builder::TakeTelemetry}};

// The line of a long request ends before its CAN ids; take them from the ComPrimitive.
void Builder::TakeRequest(const TraceEvent& event) {
    Primitive& primitive = primitives_[event.Number("req_id")];
    RecordedExchange exchange;
    exchange.line = event.line;
    exchange.data = event.Hex("tx_hex");
    exchange.size = event.Number("tx_len");
    const std::size_t needed = std::min(exchange.size, kKeyBytes);
    if (exchange.size > kMaxRequestSize || exchange.data.size() > exchange.size ||
        exchange.data.size() < needed) {
        result_.damaged_lines.push_back(event.line);
        return;
    }
    if (event.is_cut) {
        const auto& candidates = primitive.candidates;
        exchange.is_multi = candidates.size() > 1;
        exchange.request_id = exchange.is_multi    ? primitive.functional_id
                              : candidates.empty() ? primitive.physical_id
                                                   : candidates[0].first;
        exchange.response_id = candidates.empty() ? primitive.response_id : candidates[0].second;
    } else {
        exchange.is_multi = event.Number("can_id_tx_phys") == kMultiRequestMark;
        exchange.request_id = event.Number(exchange.is_multi ? "can_id_tx_func" : "can_id_tx_phys");
        exchange.response_id = event.Number("can_id_rx");
    }
    const bool answer_came_first =
        primitive.early && primitive.early->time_us + kReportingDelayUs >= event.time_us;
    if (!answer_came_first) DropEarly(&primitive);
    primitive.exchange = result_.exchanges.size();
    primitive.sent_us = event.time_us;
    result_.exchanges.push_back(std::move(exchange));
    if (!answer_came_first) return;
    const TraceEvent early = *primitive.early;
    primitive.early.reset();
    AddAnswer(primitive, early);
}

void Builder::TakeAnswer(const TraceEvent& event) {
    Primitive& primitive = primitives_[event.Number("req_id")];
    const RecordedExchange* exchange = ExchangeOf(primitive);
    const auto is_answer = [](const RecordedPacket& packet) {
        return packet.kind != RecordedPacket::Kind::kBusy;
    };
    const bool is_awaited = exchange != nullptr && std::none_of(exchange->packets.begin(),
                                                                exchange->packets.end(), is_answer);
    if (is_awaited) return AddAnswer(primitive, event);
    DropEarly(&primitive);
    primitive.early = event;
}

// An answer that no later request took: a duplicate for the request before it, if any.
void Builder::DropEarly(Primitive* primitive) {
    if (!primitive->early) return;
    const TraceEvent early = *primitive->early;
    primitive->early.reset();
    if (ExchangeOf(*primitive) != nullptr) {
        AddAnswer(*primitive, early);
    } else {
        result_.strange_answers.push_back(early.line);
    }
}

std::optional<Bytes> Builder::WholeBytes(const TraceEvent& event) {
    Bytes bytes = event.Hex("rx_hex");
    const std::size_t size = event.Number("rx_len");
    if (bytes.size() == size) return bytes;
    result_.cut_answers.push_back(event.line);
    if (!options_.fill || size > kMaxRequestSize || bytes.size() > size) return std::nullopt;
    bytes.resize(size, *options_.fill);
    return bytes;
}

void Builder::AddAnswer(const Primitive& primitive, const TraceEvent& event) {
    RecordedPacket packet;
    packet.at_ms = Milliseconds(primitive.sent_us, event.time_us);
    packet.wait_time = event.Number("wait_time");
    if (packet.wait_time == kMultiResponseMark) {
        packet.kind = RecordedPacket::Kind::kMultiAnswer;
        ReadEntries(primitive, event, &packet);
    } else if (std::optional<Bytes> data = WholeBytes(event)) {
        packet.data = std::move(*data);
    } else {
        packet.wait_time = kNoAnswerInTime;
    }
    ExchangeOf(primitive)->packets.push_back(std::move(packet));
}

// The entries that are complete in the trace; later results may show more.
void Builder::ReadEntries(const Primitive& primitive, const TraceEvent& event,
                          RecordedPacket* packet) {
    const Bytes bytes = event.Hex("rx_hex");
    packet->is_cut = bytes.size() < event.Number("rx_len");
    if (packet->is_cut) result_.cut_answers.push_back(event.line);
    ByteSpan rest = bytes;
    while (rest.size() >= 8) {
        const std::size_t size = LoadU32(rest.data() + 4);
        if (size > rest.size() - 8) break;
        packet->entries.push_back(
            MakeEntry(primitive, LoadU32(rest.data()), rest.subspan(8, size)));
        rest = rest.subspan(std::min(rest.size(), (8 + size + 7) / 8 * 8));
    }
}

RecordedEntry Builder::MakeEntry(const Primitive& primitive, std::uint32_t position,
                                 ByteSpan data) {
    RecordedEntry entry = {std::nullopt, position, Bytes(data.begin(), data.end())};
    if (position < primitive.candidates.size()) {
        entry.response_id = primitive.candidates[position].second;
    }
    return entry;
}

void Builder::TakeBusy(const TraceEvent& event) {
    const Primitive& primitive = primitives_[event.Number("req_id")];
    RecordedExchange* exchange = ExchangeOf(primitive);
    if (exchange == nullptr) {
        result_.strange_answers.push_back(event.line);
        return;
    }
    RecordedPacket packet;
    packet.kind = RecordedPacket::Kind::kBusy;
    packet.at_ms = Milliseconds(primitive.sent_us, event.time_us);
    const auto reason = event.fields.find("reason");
    if (reason != event.fields.end() && reason->is_string()) {
        const auto& text = reason->get_ref<const std::string&>();
        packet.data.assign(text.begin(), text.end());
    }
    exchange->packets.push_back(std::move(packet));
}

void Builder::TakeResult(const TraceEvent& event) {
    const Primitive& primitive = Of(event);
    if (primitive.is_raw) return AddFrame(event);
    RecordedExchange* exchange = ExchangeOf(primitive);
    if (exchange != nullptr && exchange->is_multi) AddMultiResult(primitive, event);
}

// What the application received of an answer that is incomplete in the trace.
void Builder::AddMultiResult(const Primitive& primitive, const TraceEvent& event) {
    std::vector<RecordedPacket>& packets = ExchangeOf(primitive)->packets;
    if (packets.empty() || !packets.back().is_cut) return;
    const std::uint32_t position = event.Number("uniq");
    std::vector<RecordedEntry>& entries = packets.back().entries;
    const auto same = [&](const RecordedEntry& entry) { return entry.position == position; };
    if (std::any_of(entries.begin(), entries.end(), same)) return;
    if (const std::optional<Bytes> data = WholeBytes(event)) {
        entries.push_back(MakeEntry(primitive, position, *data));
    }
}

void Builder::AddFrame(const TraceEvent& event) {
    const Bytes bytes = event.Hex("rx_hex");
    if (bytes.size() < 4 || bytes.size() > 4 + kMaxFrameBytes) {
        result_.damaged_lines.push_back(event.line);
        return;
    }
    TimedFrame frame;
    frame.at_ms = Milliseconds(listening_us_, event.time_us);
    for (std::size_t i = 0; i < 4; ++i)
        frame.frame.id = frame.frame.id << 8 | bytes[i];
    frame.frame.data.assign(bytes.begin() + 4, bytes.end());
    result_.frames.push_back(std::move(frame));
}

void Builder::TakeTelemetry(const TraceEvent& event) {
    const auto json = event.fields.find("tele_json");
    const auto is_cut = event.fields.find("tele_json_trunc");
    if (json == event.fields.end() || !json->is_string() || is_cut == event.fields.end() ||
        *is_cut != false) {
        result_.cut_answers.push_back(event.line);
        return;
    }
    const auto& text = json->get_ref<const std::string&>();
    TimelineEvent report;
    report.at_ms = Milliseconds(begin_us_, event.time_us);
    report.packet = MakePacket(type::kTele, Bytes(text.begin(), text.end()));
    result_.telemetry.push_back(std::move(report));
}

std::string Shorten(ByteSpan bytes) {
    constexpr std::size_t kShown = 32;
    if (bytes.size() <= kShown) return ToHex(bytes);
    return ToHex(bytes.first(kShown)) + "… (" + std::to_string(bytes.size()) + " bytes)";
}

std::string DescribeAddress(bool is_multi, std::uint32_t request_id, std::uint32_t response_id) {
    if (is_multi) return "functional " + CanIdText(request_id);
    return CanIdText(request_id) + " to " + CanIdText(response_id);
}

// "; 2 damaged (line 17, 44)"
void AppendLines(std::string* text, const std::vector<std::size_t>& lines, const char* what) {
    constexpr std::size_t kShown = 5;
    if (lines.empty()) return;
    *text += "; " + std::to_string(lines.size()) + " " + what + " (line ";
    for (std::size_t i = 0; i < std::min(lines.size(), kShown); ++i)
        *text += (i == 0 ? "" : ", ") + std::to_string(lines[i]);
    *text += lines.size() > kShown ? ", …)" : ")";
}

template <typename T>
void MoveBehind(std::vector<T>* target, std::vector<T>* source) {
    std::move(source->begin(), source->end(), std::back_inserter(*target));
}

}  // namespace

bool RecordedExchange::Matches(const Request& request) const {
    const std::uint32_t asked = request.is_multi ? request.functional_id : request.physical_id;
    if (is_multi != request.is_multi || request_id != asked) return false;
    if (!is_multi && response_id != request.response_id) return false;
    return size == request.data.size() &&
           std::equal(data.begin(), data.end(), request.data.begin());
}

void Recording::Append(Recording next) {
    MoveBehind(&exchanges, &next.exchanges);
    MoveBehind(&frames, &next.frames);
    MoveBehind(&telemetry, &next.telemetry);
}

// "7E0 to 7E8: 22F190, answered after 12 ms: 62F190…"
std::string RecordedExchange::Describe() const {
    std::string text = DescribeAddress(is_multi, request_id, response_id) + ": " + Shorten(data);
    if (packets.empty()) return text + ", no packet came back";
    for (const RecordedPacket& packet : packets) {
        const std::string after = " after " + std::to_string(packet.at_ms) + " ms";
        if (packet.kind == RecordedPacket::Kind::kBusy) {
            text += ", busy" + after;
        } else if (packet.kind == RecordedPacket::Kind::kMultiAnswer) {
            text += ", " + std::to_string(packet.entries.size()) + " answers" + after;
        } else if (packet.wait_time == kNoAnswerInTime) {
            text += ", nobody answered" + after;
        } else {
            text += ", answered" + after + ": " + Shorten(packet.data);
        }
    }
    return text;
}

std::string Recording::Summary() const {
    std::string text = "requests: " + std::to_string(exchanges.size()) +
                       ", raw frames: " + std::to_string(frames.size()) +
                       ", telemetry reports: " + std::to_string(telemetry.size()) +
                       ", lines: " + std::to_string(lines);
    AppendLines(&text, damaged_lines, "damaged");
    AppendLines(&text, unknown_lines, "unknown");
    AppendLines(&text, cut_answers, "with an answer that is cut");
    AppendLines(&text, strange_answers, "with an answer to no request");
    return text;
}

Recording MakeRecording(const TraceText& trace, const RecordingOptions& options) {
    Builder builder(options);
    for (const TraceEvent& event : trace.events)
        builder.Add(event);
    Recording recording = builder.Finish();
    recording.lines = trace.lines;
    recording.unknown_lines = trace.unknown;
    auto& damaged = recording.damaged_lines;
    damaged.insert(damaged.end(), trace.damaged.begin(), trace.damaged.end());
    std::sort(damaged.begin(), damaged.end());
    return recording;
}

std::vector<Recording> LoadRecordings(const std::vector<std::string>& paths,
                                      const RecordingOptions& options) {
    std::vector<Recording> recordings;
    std::vector<std::string> empty;
    for (const std::string& path : paths) {
        std::ifstream file(path, std::ios::binary);
        if (!file) throw std::runtime_error(path + ": cannot be read");
        Recording recording = MakeRecording(ReadTrace(&file), options);
        recording.path = path;
        if (recording.IsEmpty()) {
            empty.push_back(path + ": nothing to play, " + recording.Summary());
        } else {
            recordings.push_back(std::move(recording));
        }
    }
    if (recordings.empty() && empty.size() == 1) throw std::runtime_error(empty.front());
    if (recordings.empty()) {
        throw std::runtime_error("nothing to play in any of the " + std::to_string(empty.size()) +
                                 " traces");
    }
    for (const std::string& text : empty)
        std::fprintf(stderr, "brennix-sim: skipped: %s\n", text.c_str());
    return recordings;
}

RecordingPlayer::RecordingPlayer(const Recording* recording) {
    for (const RecordedExchange& exchange : recording->exchanges) {
        auto& alike = series_[Key(exchange.is_multi, exchange.request_id, exchange.response_id,
                                  exchange.size, exchange.data)];
        const auto same = [&](const Series& series) {
            return series.exchanges.front()->data == exchange.data;
        };
        const auto found = std::find_if(alike.begin(), alike.end(), same);
        if (found != alike.end()) {
            found->exchanges.push_back(&exchange);
        } else {
            alike.push_back({{&exchange}, 0});
        }
    }
}

const RecordedExchange* RecordingPlayer::Next(const Request& request) {
    const std::uint32_t asked = request.is_multi ? request.functional_id : request.physical_id;
    const auto alike = series_.find(
        Key(request.is_multi, asked, request.response_id, request.data.size(), request.data));
    if (alike != series_.end()) {
        for (Series& series : alike->second) {
            if (!series.exchanges.front()->Matches(request)) continue;
            const RecordedExchange* exchange = series.exchanges[series.next];
            if (series.next + 1 < series.exchanges.size()) ++series.next;
            ++played_;
            return exchange;
        }
    }
    ++unknown_;
    return nullptr;
}

void RecordingPlayer::Rewind() {
    for (auto& [key, alike] : series_) {
        for (Series& series : alike)
            series.next = 0;
    }
}

Bytes MakeRecorded(const RecordedPacket& recorded, const Request& request) {
    if (recorded.kind == RecordedPacket::Kind::kBusy) {
        return MakeBusy(request.id, {reinterpret_cast<const char*>(recorded.data.data()),
                                     recorded.data.size()});
    }
    if (recorded.kind == RecordedPacket::Kind::kAnswer) {
        return MakeResponse(request.id, recorded.wait_time, recorded.data);
    }
    std::vector<std::pair<std::uint32_t, Bytes>> answers;
    for (const RecordedEntry& entry : recorded.entries) {
        const std::optional<std::uint32_t> position =
            entry.response_id ? request.PositionOf(*entry.response_id) : entry.position;
        if (position) answers.emplace_back(*position, entry.data);
    }
    return MakeMultiResponse(request.id, answers);
}

std::string DescribeAsked(const Request& request) {
    const std::uint32_t asked = request.is_multi ? request.functional_id : request.physical_id;
    return DescribeAddress(request.is_multi, asked, request.response_id) + ": " +
           Shorten(request.data);
}

}  // namespace brennix
