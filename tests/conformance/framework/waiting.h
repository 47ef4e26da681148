#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace conformance {

// How long a test waits for something that must happen.
inline constexpr std::chrono::seconds kPatience{20};

// True as soon as `happened` returns true; false after the patience above. For use in EXPECT_TRUE.
template <typename Predicate>
bool Eventually(Predicate happened, std::chrono::milliseconds limit = kPatience) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!happened()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

// Opens once, for any number of waiters.
class Gate {
public:
    void Open() {
        const std::lock_guard hold(lock_);
        open_ = true;
        changed_.notify_all();
    }
    bool Wait(std::chrono::milliseconds limit = kPatience) {
        std::unique_lock hold(lock_);
        return changed_.wait_for(hold, limit, [this] { return open_; });
    }
    bool IsOpen() {
        const std::lock_guard hold(lock_);
        return open_;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    bool open_ = false;
};

// Runs `work` on a thread of its own. False: it has not ended in time. The thread then continues,
// so `work` must only refer to what stays.
inline bool EndsInTime(std::function<void()> work, std::chrono::milliseconds limit = kPatience) {
    auto done = std::make_shared<Gate>();
    std::thread thread([done, work = std::move(work)] {
        work();
        done->Open();
    });
    const bool ended = done->Wait(limit);
    if (ended) {
        thread.join();
    } else {
        thread.detach();
    }
    return ended;
}

// A thread that is joined at the end of its scope.
class Thread {
public:
    template <typename Body>
    explicit Thread(Body body) : thread_(std::move(body)) {}
    ~Thread() { Join(); }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    void Join() {
        if (thread_.joinable()) thread_.join();
    }

private:
    std::thread thread_;
};

}  // namespace conformance
