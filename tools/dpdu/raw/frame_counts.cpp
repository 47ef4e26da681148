#include "raw/frame_counts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace dpdu {

namespace {

// A byte that was not there before has changed.
void NoteChanges(const Bytes& data, FrameRate::Time now, CountedFrame* frame) {
    const Bytes& before = frame->last.data;
    for (std::size_t i = 0; i < std::min(data.size(), kLargestFrame); ++i) {
        if (i >= before.size() || before[i] != data[i]) frame->changes[i] = now;
    }
}

}  // namespace

void FrameCounts::Add(const CanFrame& frame, std::uint64_t time_us, FrameRate::Time now) {
    CountedFrame& entry = entries_[{frame.is_29_bit, frame.id}];
    if (entry.count == 0) {
        entry.first_us = time_us;
    } else {
        NoteChanges(frame.data, now, &entry);
    }
    ++entry.count;
    entry.last_us = std::max(entry.last_us, time_us);  // stamps need not be in order
    entry.last = frame;
    entry.rate.Add(now);
    ++total_;
}

void FrameCounts::ForEach(const std::function<void(const CountedFrame&)>& look) const {
    for (const auto& [key, entry] : entries_)
        look(entry);
}

std::optional<double> CountedFrame::PeriodMs() const {
    if (count < 2) return std::nullopt;
    const double mean_us = static_cast<double>(last_us - first_us) / static_cast<double>(count - 1);
    return std::round(mean_us / 100) / 10;  // tenths of a millisecond
}

std::string CountedFrame::PeriodText() const {
    const std::optional<double> period_ms = PeriodMs();
    if (!period_ms) return "-";
    char text[40];
    std::snprintf(text, sizeof text, "%.1f ms", *period_ms);
    return text;
}

bool CountedFrame::HasChangedSince(std::size_t byte, FrameRate::Time time) const {
    return byte < changes.size() && changes[byte] != FrameRate::Time() && changes[byte] >= time;
}

std::vector<Row> FrameCounts::Rows() const {
    std::vector<Row> rows = {{"ID", "COUNT", "PERIOD", "LAST DATA"}};
    for (const auto& [key, entry] : entries_) {
        rows.push_back({FrameIdText(entry.last), std::to_string(entry.count), entry.PeriodText(),
                        HexText(entry.last.data, " ")});
    }
    return rows;
}

Json FrameCounts::AsJson() const {
    Json list = Json::array();
    for (const auto& [key, entry] : entries_) {
        const std::optional<double> period_ms = entry.PeriodMs();
        list.push_back({{"id", FrameIdText(entry.last)},
                        {"extended", entry.last.is_29_bit},
                        {"count", entry.count},
                        {"periodMs", period_ms ? Json(*period_ms) : Json()},
                        {"lastData", HexText(entry.last.data)}});
    }
    return list;
}

}  // namespace dpdu
