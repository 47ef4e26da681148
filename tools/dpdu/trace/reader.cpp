#include "trace/reader.h"

#include <algorithm>
#include <utility>

namespace dpdu::trace {
namespace {

// The library's longest line has 8191 characters, but a truncated line lacks its line end and is
// joined with the next.
constexpr std::size_t kLongestLine = std::size_t{1024} * 1024;
// At most this many threads write at the same time.
constexpr std::size_t kOrderWindow = 32;

bool IsLater(const Record& a, const Record& b) {
    if (a.TimeUs() != b.TimeUs()) return a.TimeUs() > b.TimeUs();
    return a.Number(Field::kSeq) > b.Number(Field::kSeq);
}

bool IsBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

}  // namespace

void LineReader::Feed(std::string_view piece) {
    while (!piece.empty()) {
        const std::size_t end = piece.find('\n');
        const std::string_view text = piece.substr(0, end);
        if (!is_overlong_ && text.size() > kLongestLine - pending_.size()) {
            is_overlong_ = true;
            pending_.clear();
            report_.damaged.Add(line_number_ + 1);
        }
        if (end == std::string_view::npos) {
            if (!is_overlong_) pending_ += text;
            return;
        }
        ++line_number_;
        if (!is_overlong_ && pending_.empty()) {
            TakeLine(text);
        } else if (!is_overlong_) {
            pending_ += text;
            TakeLine(pending_);
        }
        pending_.clear();
        is_overlong_ = false;
        piece.remove_prefix(end + 1);
    }
}

void LineReader::Finish() {
    if (!pending_.empty()) {
        ++line_number_;
        TakeLine(pending_);
        pending_.clear();
    }
    HandOnAll();
}

// A line truncated by the library has lost its line end too, so the next one follows in the same
// line.
void LineReader::TakeLine(std::string_view line) {
    while (!line.empty()) {
        const std::size_t next = line.find(kLineStart, 1);
        TakePart(line.substr(0, next));
        if (next == std::string_view::npos) return;
        line.remove_prefix(next);
    }
}

void LineReader::TakePart(std::string_view part) {
    if (IsBlank(part)) return;
    switch (ParseLine(part, &parsed_)) {
        case LineKind::kDamaged:
            report_.damaged.Add(line_number_);
            return;
        case LineKind::kUnknownEvent:
            report_.unknown.Add(line_number_);
            return;
        case LineKind::kRecord:
            break;
    }
    ++report_.records;
    if (parsed_.was_cut) ++report_.cut;
    Order(std::move(parsed_));
}

void LineReader::Order(Record record) {
    // The clock of another process may differ.
    if (record.event == Event::kLogStart) HandOnAll();
    waiting_.push_back(std::move(record));
    std::push_heap(waiting_.begin(), waiting_.end(), IsLater);
    if (waiting_.size() > kOrderWindow) HandOnFirst();
}

void LineReader::HandOnFirst() {
    std::pop_heap(waiting_.begin(), waiting_.end(), IsLater);
    const Record first = std::move(waiting_.back());
    waiting_.pop_back();
    handler_(first);
}

void LineReader::HandOnAll() {
    while (!waiting_.empty())
        HandOnFirst();
}

}  // namespace dpdu::trace
