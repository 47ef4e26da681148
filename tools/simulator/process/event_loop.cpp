#include "process/event_loop.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace brennix {

EventLoop::EventLoop() : epoll_fd_(::epoll_create1(EPOLL_CLOEXEC)) {
    if (epoll_fd_ < 0) throw std::system_error(errno, std::generic_category(), "epoll_create1");
}

EventLoop::~EventLoop() { ::close(epoll_fd_); }

void EventLoop::Watch(int fd, std::uint32_t events, std::function<void(std::uint32_t)> handler,
                      bool first) {
    epoll_event event = {};
    event.events = events;
    event.data.fd = fd;
    if (::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &event) != 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
    watches_[fd] = std::make_shared<WatchEntry>(WatchEntry{std::move(handler), first});
}

void EventLoop::Change(int fd, std::uint32_t events) {
    epoll_event event = {};
    event.events = events;
    event.data.fd = fd;
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_MOD, fd, &event);
}

void EventLoop::Unwatch(int fd) {
    if (watches_.erase(fd) != 0) ::epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, fd, nullptr);
}

EventLoop::TimerId EventLoop::After(std::chrono::milliseconds delay, std::function<void()> action) {
    const TimerId timer = {Clock::now() + delay, next_timer_++};
    timers_.emplace(timer, std::move(action));
    return timer;
}

int EventLoop::Wait() {
    timespec limit = {};
    const timespec* wait_for = nullptr;  // no timer: no limit
    if (!timers_.empty()) {
        const auto left = timers_.begin()->first.first - Clock::now();
        const auto nanoseconds = std::max<std::int64_t>(0, std::chrono::nanoseconds(left).count());
        limit.tv_sec = nanoseconds / 1'000'000'000;
        limit.tv_nsec = nanoseconds % 1'000'000'000;
        wait_for = &limit;
    }
    const int count = ::epoll_pwait2(epoll_fd_, ready_.data(), kEventsPerRound, wait_for, nullptr);
    if (count < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "epoll_wait");
    }
    return std::max(count, 0);
}

void EventLoop::Serve(int count) {
    for (const bool first : {true, false}) {
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = ready_[static_cast<std::size_t>(i)];
            const auto found = watches_.find(event.data.fd);
            if (found == watches_.end() || found->second->first != first) continue;
            const std::shared_ptr<WatchEntry> keep = found->second;
            keep->handler(event.events);
        }
    }
}

void EventLoop::RunDueTimers() {
    // Timers started by an action without delay wait for the next round, after the descriptors.
    const Clock::time_point now = Clock::now();
    while (!timers_.empty() && timers_.begin()->first.first <= now) {
        auto due = timers_.extract(timers_.begin());
        due.mapped()();
    }
}

void EventLoop::Run() {
    running_ = true;
    while (running_) {
        Serve(Wait());
        if (!timers_.empty()) RunDueTimers();
    }
}

}  // namespace brennix
