// Shows a waiting user what the program is doing if it takes longer than a second.

#ifndef TOOLS_DPDU_CONSOLE_PROGRESS_H
#define TOOLS_DPDU_CONSOLE_PROGRESS_H

#include <chrono>
#include <condition_variable>
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

}  // namespace dpdu

#endif  // TOOLS_DPDU_CONSOLE_PROGRESS_H
