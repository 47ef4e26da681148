#include "link/telemetry.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string_view>

#include "support/cop_trace.h"
#include "support/log.h"

namespace tarvik {
namespace {

// The text is searched, not parsed, so that a truncated report can be read as far as it goes.
// Nothing here allocates or reads outside the text.

constexpr std::int64_t kMissing = -1;

std::string_view SkipSpace(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

// The text after the first `"key" :`; empty if there is none. Deliberate: the first one counts,
// even inside a task or a string.
std::string_view FindValue(std::string_view text, std::string_view key) {
    for (std::size_t at = text.find(key); at != std::string_view::npos;
         at = text.find(key, at + 1)) {
        const std::size_t end = at + key.size();
        if (at == 0 || text[at - 1] != '"' || end >= text.size() || text[end] != '"') continue;
        const std::string_view rest = SkipSpace(text.substr(end + 1));
        if (rest.starts_with(':')) return SkipSpace(rest.substr(1));
    }
    return {};
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The integer part of the number at the start of `text`, limited to 64 bits.
std::int64_t ReadNumber(std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative) text.remove_prefix(1);
    if (text.empty() || !IsDigit(text.front())) return kMissing;
    using Limits = std::numeric_limits<std::int64_t>;
    std::int64_t value = 0;
    for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1)) {
        const std::int64_t digit = text.front() - '0';
        const bool overflows = __builtin_mul_overflow(value, 10, &value) ||
                               __builtin_sub_overflow(value, digit, &value);
        if (overflows) return negative ? Limits::min() : Limits::max();
    }
    // Summed up as a negative number: that range is larger by one.
    if (negative) return value;
    return value == Limits::min() ? Limits::max() : -value;
}

std::int64_t FindNumber(std::string_view text, std::string_view key) {
    return ReadNumber(FindValue(text, key));
}

// `text` starts after an opening quote. The length up to the closing one, or of the whole text.
std::size_t StringLength(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && text[i] != '"')
        i += text[i] == '\\' ? 2 : 1;
    return std::min(i, text.size());
}

std::string_view FindString(std::string_view text, std::string_view key) {
    const std::string_view value = FindValue(text, key);
    if (!value.starts_with('"')) return {};
    return value.substr(1, StringLength(value.substr(1)));
}

// Walks the elements of an array. Its text starts after the opening bracket.
class ArrayElements {
public:
    explicit ArrayElements(std::string_view text) : rest_(text) {}

    // False at the end of the array or text. `cut`: the text ends inside this object or array.
    bool Next(std::string_view* element, bool* cut) {
        rest_ = SkipSpace(rest_);
        while (rest_.starts_with(','))
            rest_ = SkipSpace(rest_.substr(1));
        if (rest_.empty() || rest_.front() == ']') return false;
        const std::size_t length = ElementLength(cut);
        *element = rest_.substr(0, length);
        rest_.remove_prefix(length);
        return true;
    }

private:
    std::size_t ElementLength(bool* cut) const {
        std::size_t depth = 0;
        std::size_t i = 0;
        for (; i < rest_.size(); ++i) {
            const char c = rest_[i];
            if (depth == 0 && (c == ',' || c == ']')) break;
            if (c == '"') i += 1 + StringLength(rest_.substr(i + 1));
            if (c == '{' || c == '[') ++depth;
            if ((c == '}' || c == ']') && depth > 0) --depth;
        }
        *cut = depth > 0;
        return std::min(i, rest_.size());
    }

    std::string_view rest_;
};

ArrayElements Tasks(std::string_view json) {
    const std::string_view value = FindValue(json, "tasks");
    return ArrayElements(value.starts_with('[') ? value.substr(1) : std::string_view());
}

std::uint32_t CountTasks(std::string_view json) {
    ArrayElements tasks = Tasks(json);
    std::string_view element;
    bool cut = false;
    std::uint32_t count = 0;
    while (tasks.Next(&element, &cut))
        ++count;
    return count;
}

// ---- the busiest tasks

constexpr std::size_t kTopTasks = 3;
constexpr std::size_t kMaxTaskObjects = 64;
constexpr std::int64_t kRankPerX = 1000000;

struct RankedTask {
    std::string_view object;
    std::int64_t rank;
};

std::int64_t RankOf(std::string_view task) {
    const std::int64_t x = FindNumber(task, "x");
    const std::int64_t r = FindNumber(task, "r");
    if (x < 0) return r;
    std::int64_t rank = 0;
    const bool overflows = __builtin_mul_overflow(x, kRankPerX, &rank) ||
                           __builtin_add_overflow(rank, std::max<std::int64_t>(r, 0), &rank);
    return overflows ? std::numeric_limits<std::int64_t>::max() : rank;
}

struct TopTasks {
    RankedTask tasks[kTopTasks];
    std::size_t count = 0;

    // Equal tasks keep their order.
    void Enter(const RankedTask& task) {
        std::size_t place = 0;
        while (place < count && task.rank <= tasks[place].rank)
            ++place;
        if (place == kTopTasks) return;
        count = std::min(count + 1, kTopTasks);
        for (std::size_t i = count - 1; i > place; --i)
            tasks[i] = tasks[i - 1];
        tasks[place] = task;
    }
};

TopTasks FindTopTasks(std::string_view json) {
    TopTasks top;
    ArrayElements tasks = Tasks(json);
    std::string_view element;
    bool cut = false;
    for (std::size_t objects = 0; objects < kMaxTaskObjects && tasks.Next(&element, &cut);) {
        if (!element.starts_with('{')) continue;
        ++objects;
        if (!cut) top.Enter({element, RankOf(element)});
    }
    return top;
}

struct TopTaskText {
    char text[256];
};

TopTaskText FormatTopTasks(const TopTasks& top) {
    constexpr std::size_t kLeastRoom = 16;
    TopTaskText out{};
    std::size_t used = 0;
    for (std::size_t i = 0; i < top.count && sizeof out.text - used >= kLeastRoom; ++i) {
        const std::string_view task = top.tasks[i].object;
        const std::string_view name = FindString(task, "n");
        const int length = FormatText(out.text + used, sizeof out.text - used,
                                      "%s%.*s x=%lldbp s=%lld st=%lld p=%lld", i == 0 ? "" : " | ",
                                      static_cast<int>(name.size()), name.data(),
                                      static_cast<long long>(FindNumber(task, "x")),
                                      static_cast<long long>(FindNumber(task, "s")),
                                      static_cast<long long>(FindNumber(task, "st")),
                                      static_cast<long long>(FindNumber(task, "p")));
        if (length < 0) break;  // cut at the end of the text
        used += static_cast<std::size_t>(length);
    }
    std::transform(std::begin(out.text), std::find(std::begin(out.text), std::end(out.text), '\0'),
                   std::begin(out.text), PrintableCharacter);
    return out;
}

// ---- the report

TraceTelemetry ReadReport(std::string_view json, std::uint32_t packet_length) {
    return {.pkt_len = packet_length,
            .v = FindNumber(json, "v"),
            .u = FindNumber(json, "u"),
            .rt = FindNumber(json, "rt"),
            .rhz = FindNumber(json, "rhz"),
            .tasks = CountTasks(json),
            .q_cr = FindNumber(json, "cr"),
            .q_ct = FindNumber(json, "ct"),
            .q_can = FindNumber(json, "can"),
            .i_si = FindNumber(json, "si"),
            .i_mx = FindNumber(json, "mx"),
            .i_ru = FindNumber(json, "ru"),
            .json = json.data(),
            .json_len = static_cast<std::uint32_t>(json.size())};
}

void LogReport(const TraceTelemetry& report, std::string_view json) {
    constexpr std::size_t kShown = 400;
    Log(kLogTrace,
        "[TELE] v=%lld u_ms=%lld rt=%lld rhz=%lld tasks=%u q(cr=%lld ct=%lld can=%lld) "
        "i(si=%lld mx=%lld ru=%lld) len=%u",
        static_cast<long long>(report.v), static_cast<long long>(report.u),
        static_cast<long long>(report.rt), static_cast<long long>(report.rhz), report.tasks,
        static_cast<long long>(report.q_cr), static_cast<long long>(report.q_ct),
        static_cast<long long>(report.q_can), static_cast<long long>(report.i_si),
        static_cast<long long>(report.i_mx), static_cast<long long>(report.i_ru), report.pkt_len);
    const TopTaskText top = FormatTopTasks(FindTopTasks(json));
    if (top.text[0] != '\0') Log(kLogTrace, "[TELE] top_tasks: %s", top.text);
    Log(kLogMemory, "[TELE] json=%.*s%s", static_cast<int>(std::min(json.size(), kShown)),
        json.data(), json.size() > kShown ? "..." : "");
}

}  // namespace

void HandleTelemetryPacket(const Packet& packet) {
    if (packet.length < MIN_PKT_SIZE) {
        Log(kLogTrace, "[%s] TELE packet too short: %u bytes", __func__, packet.length);
        return;
    }
    std::string_view json(reinterpret_cast<const char*>(packet.Bytes()) + MIN_PKT_SIZE,
                          packet.length - MIN_PKT_SIZE);
    if (json.ends_with('\0')) json.remove_suffix(1);
    if (json.empty()) {
        Log(kLogTrace, "[%s] TELE packet has empty payload", __func__);
        return;
    }
    const TraceTelemetry report = ReadReport(json, packet.length);
    LogReport(report, json);
    TraceTelemetryReport(report);
}

}  // namespace tarvik
