#include "trace/timeline.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "trace/text.h"
#include "uds/answers.h"

namespace dpdu::trace {
namespace {

// What a part of a request's time was spent on; of two equal parts the later one is shown.
enum Part : std::size_t { kQueued, kSending, kWaiting, kAnswer, kCallback, kPartCount };
constexpr char kMarks[] = ".-=#c";
constexpr char kTimeOutMark = 'x';
constexpr char kGoesOnMark = '+';
constexpr char kLegend[] =
    ". queued   - sending   = waiting   # answer   c callback   x time-out   + goes on";

constexpr std::size_t kLeastBar = 10;
constexpr std::size_t kRowBytes = 5;
constexpr std::size_t kRequestWidth = 18;
// Width of TIME, LINK, COP, MS, END and REQUEST with the space between them.
constexpr char kRowFormat[] = "%10s  %-5s %6u %11s  %-6s  %-*.*s  ";
constexpr std::size_t kRowHead = 10 + 2 + 5 + 1 + 6 + 1 + 11 + 2 + 6 + 2 + kRequestWidth + 2;

struct Span {
    std::uint64_t begin_us;
    std::uint64_t end_us;
    Part part;
};

std::vector<Span> SpansOf(const Request& request) {
    const std::uint64_t end = request.EndUs();
    const std::uint64_t started = request.started_us > 0 ? request.started_us : end;
    std::vector<Span> spans = {{request.queued_us, started, kQueued}};
    std::uint64_t at = started;
    for (std::size_t i = 0; i < request.exchanges.size(); ++i) {
        const Exchange& exchange = request.exchanges[i];
        const bool is_last = i + 1 == request.exchanges.size();
        const std::uint64_t next = is_last ? end : request.exchanges[i + 1].sent_us;
        spans.push_back({at, exchange.sent_us, i == 0 ? kSending : kAnswer});
        at = exchange.answered_us > 0 ? exchange.answered_us : next;
        spans.push_back({exchange.sent_us, at, kWaiting});
    }
    spans.push_back({at, end, request.exchanges.empty() ? kSending : kAnswer});
    return spans;
}

// The share of each part in each column's time.
class Columns {
public:
    explicit Columns(const BarScale& scale) : scale_(scale), shares_(scale.columns) {}

    void Add(const Span& span) {
        const std::uint64_t scale_end = scale_.begin_us + scale_.column_us * scale_.columns;
        std::uint64_t at = std::max(span.begin_us, scale_.begin_us);
        const std::uint64_t end = std::min(span.end_us, scale_end);
        while (at < end) {
            const std::uint64_t column = (at - scale_.begin_us) / scale_.column_us;
            const std::uint64_t next = scale_.begin_us + (column + 1) * scale_.column_us;
            shares_[static_cast<std::size_t>(column)][span.part] += std::min(next, end) - at;
            at = next;
        }
    }
    // A callback lies within another span.
    void Overlay(const Span& span, Part under) {
        Columns over(scale_);
        over.Add(span);
        for (std::size_t i = 0; i < shares_.size(); ++i) {
            const std::uint64_t share = over.shares_[i][span.part];
            shares_[i][span.part] += share;
            shares_[i][under] -= std::min(share, shares_[i][under]);
        }
    }

    char Mark(std::size_t column) const {
        const auto& share = shares_[column];
        std::size_t best = 0;
        for (std::size_t part = 1; part < kPartCount; ++part) {
            if (share[part] >= share[best]) best = part;
        }
        return share[best] == 0 ? ' ' : kMarks[best];
    }

private:
    BarScale scale_;
    std::vector<std::array<std::uint64_t, kPartCount>> shares_;
};

Part PartAt(const std::vector<Span>& spans, std::uint64_t time_us) {
    for (const Span& span : spans) {
        if (time_us >= span.begin_us && time_us < span.end_us) return span.part;
    }
    return kAnswer;
}

// The column of a point in time; nullopt if it lies outside.
std::optional<std::size_t> ColumnOf(std::uint64_t time_us, const BarScale& scale) {
    if (time_us < scale.begin_us) return std::nullopt;
    const std::uint64_t column = (time_us - scale.begin_us) / scale.column_us;
    if (column >= scale.columns) return std::nullopt;
    return static_cast<std::size_t>(column);
}

std::string EndText(const Request& request) {
    if (request.is_raw) return "raw";
    if (request.IsCancelled()) return "cancel";
    if (!request.errors.empty() && request.results == 0) return "error";
    if (!request.IsFinished() && request.freed_us == 0) return "open";
    if (const Payload* answer = request.Answer()) {
        const auto negative = ParseNegativeResponse(answer->bytes);
        if (negative) return "NRC " + HexNumber(negative->code, 2);
    }
    return request.HasNegativeAnswer() ? "NRC" : "ok";
}

}  // namespace

bool IsProblem(const Request& request) {
    if (request.is_raw) return false;
    return request.IsCancelled() || !request.errors.empty() || request.TimeOuts() > 0 ||
           request.HasNegativeAnswer() || (!request.IsFinished() && request.freed_us == 0);
}

std::string BarText(const Request& request, const BarScale& scale) {
    const std::vector<Span> spans = SpansOf(request);
    Columns columns(scale);
    for (const Span& span : spans)
        columns.Add(span);
    for (const CallbackTime& time : request.callbacks) {
        const std::uint64_t end = std::min(time.begin_us + time.length_us, request.EndUs());
        columns.Overlay({time.begin_us, end, kCallback}, PartAt(spans, time.begin_us));
    }
    std::string bar;
    for (std::size_t column = 0; column < scale.columns; ++column)
        bar += columns.Mark(column);
    for (const Exchange& exchange : request.exchanges) {
        if (exchange.result != ExchangeResult::kSilent) continue;
        const auto column = ColumnOf(exchange.answered_us, scale);
        if (column) bar[*column] = kTimeOutMark;
    }
    // Even the shortest request is visible.
    if (const auto first = ColumnOf(request.queued_us, scale); first && bar[*first] == ' ') {
        bar[*first] = kMarks[kQueued];
    }
    const std::uint64_t scale_end = scale.begin_us + scale.column_us * scale.columns;
    if (request.EndUs() > scale_end && !bar.empty()) bar.back() = kGoesOnMark;
    bar.erase(bar.find_last_not_of(' ') + 1);
    return bar;
}

void Timeline::Take(const Record& record) {
    const bool is_start = record.event == Event::kLogStart;
    if (is_start) tracker_.Finish();
    if (is_start || !is_in_session_) {
        if (is_in_session_) ++session_;
        is_in_session_ = true;
        if (!is_showing_) {
            sessions_.push_back(
                {record.U32(Field::kProcess), record.U32(Field::kSession), record.TimeUs()});
        }
    }
    tracker_.Take(record);
}

void Timeline::EndOfFile() {
    tracker_.Finish();
    if (is_in_session_) ++session_;
    is_in_session_ = false;
}

void Timeline::StartShowing() {
    is_showing_ = true;
    session_ = 0;
    if (Shown() > 0) ShowLegend();
}

bool Timeline::IsWanted(const Request& request) const {
    const std::uint64_t first_us = sessions_[session_].first_us;
    const auto since_start = [first_us](std::uint64_t time_us) {
        return time_us > first_us ? time_us - first_us : 0;
    };
    if (filter_.module && request.module != *filter_.module) return false;
    if (filter_.link && request.link != *filter_.link) return false;
    if (filter_.from_us && since_start(request.EndUs()) < *filter_.from_us) return false;
    if (filter_.to_us && since_start(request.queued_us) > *filter_.to_us) return false;
    return !filter_.only_problems || IsProblem(request);
}

void Timeline::OnRequest(const Request& request) {
    // If the file has grown since the first pass, ignore the new part.
    if (session_ >= sessions_.size() || !IsWanted(request)) return;
    if (is_showing_) {
        ShowRow(request);
        return;
    }
    Session& session = sessions_[session_];
    session.earliest_us = std::min(session.earliest_us, request.queued_us);
    session.latest_us = std::max(session.latest_us, request.EndUs());
    durations_.Add(request.DurationUs());
}

BarScale Timeline::ScaleFor(const Request& request) const {
    const Session& session = sessions_[session_];
    BarScale scale;
    scale.columns = std::max(style_.width, kRowHead + kLeastBar) - kRowHead;
    // A single very long request must not shrink all others to dots.
    const std::uint64_t range =
        style_.is_waterfall ? session.latest_us - session.earliest_us : durations_.PercentileUs(95);
    scale.column_us = range / scale.columns + 1;
    scale.begin_us = style_.is_waterfall ? session.earliest_us : request.queued_us;
    return scale;
}

void Timeline::ShowLegend() const { output_->Line(kLegend); }

void Timeline::ShowHeader() {
    Session& session = sessions_[session_];
    if (session.has_header) return;
    session.has_header = true;
    Request nothing;
    nothing.queued_us = session.earliest_us;
    const BarScale scale = ScaleFor(nothing);
    output_->Line("");
    output_->Line("Process " + std::to_string(session.process) + ", session " +
                  (session.number == 0 ? "unknown" : std::to_string(session.number)) +
                  "; a column is " + MsText(scale.column_us) + " ms");
    char head[160];
    std::snprintf(head, sizeof head, "%10s  %-5s %6s %11s  %-6s  %s", "AT S", "LINK", "COP", "MS",
                  "END", "REQUEST");
    output_->Line(head);
}

void Timeline::ShowRow(const Request& request) {
    ShowHeader();
    const std::uint64_t first_us = sessions_[session_].first_us;
    const std::uint64_t at_us = request.queued_us - std::min(first_us, request.queued_us);
    const std::string link = std::to_string(request.module) + ":" + std::to_string(request.link);
    char head[200];
    constexpr int kWidth = static_cast<int>(kRequestWidth);
    std::snprintf(head, sizeof head, kRowFormat, SecondsText(at_us).c_str(), link.c_str(),
                  request.cop, MsText(request.DurationUs()).c_str(), EndText(request).c_str(),
                  kWidth, kWidth, RequestText(request, kRowBytes).c_str());
    output_->Line(head + BarText(request, ScaleFor(request)));
}

}  // namespace dpdu::trace
