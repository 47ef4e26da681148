#include "commands/relay_lines.h"

#include <cstdio>
#include <mutex>
#include <thread>
#include <utility>

#include "console/terminal.h"

namespace dpdu {

struct RelayLines::Shared {
    std::mutex lock;
    std::vector<std::string> news;  // guarded by lock

    void Look(std::string_view line) {
        std::string text = RelayNews(line);
        if (text.empty()) return;
        const std::lock_guard hold(lock);
        news.push_back(std::move(text));
    }
};

namespace {

// Calls `look` with each whole line, without its end, until nobody can print any more.
template <typename Look>
void ReadLines(int descriptor, bool is_forwarding, Look look) {
    constexpr std::size_t kLongestLine = 8192;
    std::string line;
    char buffer[4096];
    for (int size; (size = ReadDescriptor(descriptor, buffer, sizeof buffer)) > 0;) {
        if (is_forwarding) std::fwrite(buffer, 1, static_cast<std::size_t>(size), stderr);
        for (const char character : std::string_view(buffer, static_cast<std::size_t>(size))) {
            if (character != '\n') {
                if (line.size() < kLongestLine) line += character;
                continue;
            }
            if (line.ends_with('\r')) line.pop_back();
            look(line);
            line.clear();
        }
    }
}

}  // namespace

std::string RelayNews(std::string_view line) {
    constexpr std::pair<std::string_view, const char*> kNews[] = {
        {"[Cloud] Connected", "the relay is connected"},
        {"[Cloud] RxThread exited. Reconnecting.", "the relay is lost; connecting again"},
        {"[Cloud] TxThread exited. Reconnecting.", "the relay is lost; connecting again"},
        {"[Cloud] Failed, waiting for disconnect", "the relay is given up; no further attempt"},
    };
    for (const auto& [text, news] : kNews) {
        if (line == text) return news;
    }
    return "";
}

// The thread is left to itself: standard output has no end before that of the program.
RelayLines::RelayLines(bool is_forwarding) : shared_(std::make_shared<Shared>()) {
    const int descriptor = PipeStandardOutput();
    if (descriptor < 0) return;
    std::thread([descriptor, is_forwarding, shared = shared_] {
        ReadLines(descriptor, is_forwarding,
                  [&shared](std::string_view line) { shared->Look(line); });
    }).detach();
}

std::vector<std::string> RelayLines::Take() {
    const std::lock_guard hold(shared_->lock);
    return std::exchange(shared_->news, {});
}

}  // namespace dpdu
