// One thread, blocked until a descriptor is ready or a timer is due. Nothing polls.

#pragma once

#include <sys/epoll.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>

namespace brennix {

using Clock = std::chrono::steady_clock;

class EventLoop {
public:
    using TimerId = std::pair<Clock::time_point, std::uint64_t>;

    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // `events` are epoll's. Watches marked `first` are served before the others of the same round.
    void Watch(int fd, std::uint32_t events, std::function<void(std::uint32_t)> handler,
               bool first = false);
    void Change(int fd, std::uint32_t events);
    void Unwatch(int fd);

    TimerId After(std::chrono::milliseconds delay, std::function<void()> action);
    void Cancel(const TimerId& timer) { timers_.erase(timer); }

    void Run();  // until Stop
    void Stop() { running_ = false; }

private:
    struct WatchEntry {
        std::function<void(std::uint32_t)> handler;
        bool first;
    };

    void Serve(int count);
    void RunDueTimers();
    int Wait();

    static constexpr int kEventsPerRound = 64;

    int epoll_fd_;
    std::array<epoll_event, kEventsPerRound> ready_;
    bool running_ = false;
    std::uint64_t next_timer_ = 0;
    std::map<TimerId, std::function<void()>> timers_;
    // Shared, so that a handler may unwatch its own descriptor while it runs.
    std::unordered_map<int, std::shared_ptr<WatchEntry>> watches_;
};

}  // namespace brennix
