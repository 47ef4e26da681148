// Actions that happen once, at times counted from a start.

#pragma once

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "process/event_loop.h"

namespace brennix {

// `Item` has a member at_ms.
template <typename Item>
class TimedList {
public:
    TimedList(EventLoop* loop, std::function<void(const Item&)> happen)
        : loop_(loop), happen_(std::move(happen)) {}
    ~TimedList() { Stop(); }
    TimedList(const TimedList&) = delete;
    TimedList& operator=(const TimedList&) = delete;

    // No effect while it runs, that is, until Stop. `items`, in any order, must not change until
    // then; items of the same time happen in their order.
    void Start(const std::vector<Item>& items) {
        if (running_) return;
        running_ = true;
        start_ = Clock::now();
        for (const Item& item : items)
            pending_.push_back(&item);
        std::reverse(pending_.begin(), pending_.end());
        std::stable_sort(pending_.begin(), pending_.end(),
                         [](const Item* a, const Item* b) { return a->at_ms > b->at_ms; });
        Schedule();
    }

    void Stop() {
        running_ = false;
        pending_.clear();
        loop_->Cancel(timer_);
    }

    bool IsRunning() const { return running_; }

private:
    Clock::time_point NextDue() const {
        return start_ + std::chrono::milliseconds(pending_.back()->at_ms);
    }

    void Schedule() {
        loop_->Cancel(timer_);
        if (pending_.empty()) return;
        const auto left = std::max(NextDue() - Clock::now(), Clock::duration::zero());
        timer_ = loop_->After(std::chrono::ceil<std::chrono::milliseconds>(left),
                              [this] { HappenDue(); });
    }

    void HappenDue() {
        const Clock::time_point now = Clock::now();
        while (!pending_.empty() && NextDue() <= now) {
            const Item* item = pending_.back();
            pending_.pop_back();
            happen_(*item);  // may stop and start the list
        }
        Schedule();
    }

    EventLoop* loop_;
    std::function<void(const Item&)> happen_;
    bool running_ = false;
    Clock::time_point start_;
    std::vector<const Item*> pending_;  // the next one is last
    EventLoop::TimerId timer_;
};

}  // namespace brennix
