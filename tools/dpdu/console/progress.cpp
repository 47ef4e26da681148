#include "console/progress.h"

#include <algorithm>
#include <utility>

#include "console/terminal.h"

namespace dpdu {

namespace {

void EraseLine(std::FILE* stream, std::size_t length) {
    if (length == 0) return;
    std::fprintf(stream, "\r%*s\r", static_cast<int>(length), "");
    std::fflush(stream);
}

}  // namespace

ProgressStyle StandardProgressStyle() {
    ProgressStyle style;
    style.rewrites_line = StandardErrorIsTerminal();
    return style;
}

Progress::Progress(std::string text, const ProgressStyle& style)
    : text_(std::move(text)), style_(style), thread_([this] { Run(); }) {}

Progress::~Progress() {
    {
        const std::lock_guard hold(lock_);
        done_ = true;
    }
    changed_.notify_all();
    thread_.join();
    if (style_.rewrites_line) Erase();
}

void Progress::Run() {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    Clock::time_point next = start + style_.delay;
    std::unique_lock hold(lock_);
    while (!changed_.wait_until(hold, next, [this] { return done_; })) {
        const auto passed = std::chrono::duration_cast<std::chrono::seconds>(next - start);
        Show(static_cast<int>(passed.count()));
        if (!style_.rewrites_line) return;
        next += std::chrono::seconds(1);
    }
}

void Progress::Show(int seconds) {
    if (!style_.rewrites_line) {
        WriteText(style_.stream, "dpdu: " + text_ + "...\n");
        std::fflush(style_.stream);
        return;
    }
    const std::string line = "dpdu: " + text_ + "... " + std::to_string(seconds) + " s";
    WriteText(style_.stream, "\r" + line);
    std::fflush(style_.stream);
    shown_length_ = line.size();  // never shrinks: the seconds only grow
}

void Progress::Erase() { EraseLine(style_.stream, shown_length_); }

ProgressBar::ProgressBar(std::string text, std::size_t total, const ProgressStyle& style)
    : text_(std::move(text)),
      total_(total),
      style_(style),
      start_(Clock::now()),
      next_(start_ + style.delay) {}

ProgressBar::~ProgressBar() { EraseLine(style_.stream, shown_length_); }

void ProgressBar::Advance(const std::string& step, Clock::time_point now) {
    constexpr std::chrono::milliseconds kBetweenRewrites{100};
    constexpr std::chrono::seconds kBetweenLines{10};
    ++done_;
    if (now < next_ || done_ > total_) return;
    Show(step, now);
    next_ = now;
    next_ += style_.rewrites_line ? Clock::duration(kBetweenRewrites) : kBetweenLines;
}

void ProgressBar::Show(const std::string& step, Clock::time_point now) {
    constexpr std::size_t kWidth = 20;
    const auto per_step = (now - start_) / static_cast<Clock::rep>(done_);
    const auto left = per_step * static_cast<Clock::rep>(total_ - done_);
    const auto seconds = std::chrono::round<std::chrono::seconds>(left).count();
    const std::string figures =
        std::to_string(done_ * 100 / total_) + " %, " + std::to_string(seconds) + " s left";
    if (!style_.rewrites_line) {
        WriteText(style_.stream, "dpdu: " + text_ + ", " + figures + "...\n");
        std::fflush(style_.stream);
        return;
    }
    const std::size_t filled = done_ * kWidth / total_;
    std::string line = "dpdu: " + text_ + " [" + std::string(filled, '#') +
                       std::string(kWidth - filled, '.') + "] " + figures + ", " + step;
    // A line that wraps could not be rewritten.
    const int columns = SizeOfTerminal(style_.stream).columns;
    if (columns > 1) line.resize(std::min(line.size(), static_cast<std::size_t>(columns - 1)));
    const std::size_t length = line.size();
    line.resize(std::max(length, shown_length_), ' ');  // over the rest of a longer one
    WriteText(style_.stream, "\r" + line);
    std::fflush(style_.stream);
    shown_length_ = length;
}

}  // namespace dpdu
