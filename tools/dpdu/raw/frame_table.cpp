#include "raw/frame_table.h"

#include <algorithm>
#include <cstdio>

namespace dpdu {
namespace {

constexpr std::chrono::seconds kShowsChange{1};

struct Layout {
    bool has_count;
    bool has_rate;
    bool has_period;
    bool has_blanks;  // between the bytes
};
// The one that says most first.
constexpr Layout kLiveLayouts[] = {{true, true, true, true},
                                   {true, true, false, true},
                                   {false, true, false, true},
                                   {false, true, false, false},
                                   {false, false, false, false}};
constexpr Layout kLastLayouts[] = {{true, false, true, true},
                                   {true, false, false, true},
                                   {true, false, false, false},
                                   {false, false, false, false}};

std::string RateText(std::optional<double> rate) {
    if (!rate) return "-";
    char text[40];
    std::snprintf(text, sizeof text, "%.*f/s", *rate < 10 ? 1 : 0, *rate);
    return text;
}

std::string DataText(const CountedFrame& frame, const Layout& layout, FrameRate::Time now,
                     bool has_changes) {
    const char* const blank = layout.has_blanks ? " " : "";
    std::string text;
    for (std::size_t i = 0; i < frame.last.data.size(); ++i) {
        if (i > 0) text += blank;
        const std::string byte = HexText({frame.last.data[i]});
        const bool is_new = has_changes && frame.HasChangedSince(i, now - kShowsChange);
        text += is_new ? "\x1b[7m" + byte + "\x1b[27m" : byte;
    }
    return text;
}

std::vector<Row> RowsOf(const FrameCounts& counts, FrameRate::Time now, const Layout& layout,
                        bool has_changes) {
    std::vector<Row> rows = {{"ID"}};
    Row& head = rows.front();
    if (layout.has_count) head.push_back("COUNT");
    if (layout.has_rate) head.push_back("RATE");
    if (layout.has_period) head.push_back("PERIOD");
    head.push_back("LAST DATA");
    counts.ForEach([&](const CountedFrame& frame) {
        Row& row = rows.emplace_back(Row{FrameIdText(frame.last)});
        if (layout.has_count) row.push_back(std::to_string(frame.count));
        if (layout.has_rate) row.push_back(RateText(frame.rate.PerSecond(now)));
        if (layout.has_period) row.push_back(frame.PeriodText());
        row.push_back(DataText(frame, layout, now, has_changes));
    });
    return rows;
}

bool Fits(const std::vector<std::string>& lines, std::size_t columns) {
    return std::ranges::all_of(
        lines, [columns](const std::string& line) { return line.size() <= columns; });
}

template <std::size_t kCount>
const Layout& FittingLayout(const Layout (&layouts)[kCount], const FrameCounts& counts,
                            FrameRate::Time now, std::size_t columns) {
    for (const Layout& layout : layouts) {
        if (Fits(TableLines(RowsOf(counts, now, layout, false)), columns)) return layout;
    }
    return layouts[kCount - 1];
}

// Says how many are left out.
void Shorten(std::vector<std::string>* lines, std::size_t most) {
    if (lines->size() <= most) return;
    const std::size_t shown = most - 1;
    const std::string rest = std::to_string(lines->size() - shown);
    lines->resize(shown);
    lines->push_back(rest + " more identifiers: see --filter");
}

}  // namespace

std::vector<std::string> FrameTableLines(const FrameCounts& counts, FrameRate::Time now,
                                         const FrameTableLook& look) {
    const Layout& layout = look.has_rates ? FittingLayout(kLiveLayouts, counts, now, look.columns)
                                          : FittingLayout(kLastLayouts, counts, now, look.columns);
    std::vector<std::string> lines = TableLines(RowsOf(counts, now, layout, look.has_changes));
    constexpr std::size_t kFewest = 3;  // the head, one identifier and the rest
    if (look.has_rates) Shorten(&lines, std::max(look.lines, kFewest + 1) - 1);
    return lines;
}

}  // namespace dpdu
