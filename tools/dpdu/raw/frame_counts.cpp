#include "raw/frame_counts.h"

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace dpdu {

void FrameCounts::Add(const CanFrame& frame, std::uint64_t time_us) {
    Entry& entry = entries_[{frame.is_29_bit, frame.id}];
    if (entry.count == 0) entry.first_us = time_us;
    ++entry.count;
    entry.last_us = time_us;
    entry.last = frame;
    ++total_;
}

std::optional<double> FrameCounts::Entry::PeriodMs() const {
    if (count < 2) return std::nullopt;
    const double mean_us = static_cast<double>(last_us - first_us) / static_cast<double>(count - 1);
    return std::round(mean_us / 100) / 10;  // tenths of a millisecond
}

std::vector<Row> FrameCounts::Rows() const {
    std::vector<Row> rows = {{"ID", "COUNT", "PERIOD", "LAST DATA"}};
    for (const auto& [key, entry] : entries_) {
        std::string period = "-";
        if (const std::optional<double> period_ms = entry.PeriodMs()) {
            char text[40];
            std::snprintf(text, sizeof text, "%.1f ms", *period_ms);
            period = text;
        }
        rows.push_back({FrameIdText(entry.last), std::to_string(entry.count), period,
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
