// Shows a waiting user what the program is doing if it takes longer than a second.

#ifndef TOOLS_DPDU_CONSOLE_PROGRESS_H
#define TOOLS_DPDU_CONSOLE_PROGRESS_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace dpdu {

struct ProgressStyle {
    std::FILE* stream = stderr;
    // On a terminal: one line, rewritten every second and erased at the end.
    bool rewrites_line = false;
    std::chrono::milliseconds delay{1000};  // before the first line
};

// The style for standard error: depends on whether it is a terminal.
ProgressStyle StandardProgressStyle();

// Shows the text during its lifetime. A separate thread writes it, because the library's functions
// block.
class Progress {
public:
    explicit Progress(std::string text, const ProgressStyle& style = StandardProgressStyle());
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    void Run();
    void Show(int seconds);
    void Erase();

    const std::string text_;
    const ProgressStyle style_;
    std::size_t shown_length_ = 0;  // while the thread runs, only it uses this
    std::mutex lock_;
    std::condition_variable changed_;
    bool done_ = false;  // guarded by lock_
    std::thread thread_;
};

// Shows how far a long job is and how much time is left. On a terminal one line, rewritten and
// erased at the end; otherwise a plain line now and then.
class ProgressBar {
public:
    using Clock = std::chrono::steady_clock;

    // `total`: number of steps.
    ProgressBar(std::string text, std::size_t total,
                const ProgressStyle& style = StandardProgressStyle());
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // One more step is done; `step` names it.
    void Advance(const std::string& step) { Advance(step, Clock::now()); }
    void Advance(const std::string& step, Clock::time_point now);

private:
    void Show(const std::string& step, Clock::time_point now);

    const std::string text_;
    const std::size_t total_;
    const ProgressStyle style_;
    const Clock::time_point start_;
    Clock::time_point next_;  // when to show it again
    std::size_t done_ = 0;
    std::size_t shown_length_ = 0;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_PROGRESS_H
