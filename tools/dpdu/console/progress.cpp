#include "console/progress.h"

#include <utility>

#include "console/terminal.h"

namespace dpdu {

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

void Progress::Erase() {
    if (shown_length_ == 0) return;
    std::fprintf(style_.stream, "\r%*s\r", static_cast<int>(shown_length_), "");
    std::fflush(style_.stream);
}

}  // namespace dpdu
