#include "task_thread.h"

#include <windows.h>

#include <objbase.h>

#include <future>
#include <memory>
#include <thread>
#include <utility>

namespace brennix {

TaskThread::TaskThread() {
    std::thread([this] { Run(); }).detach();
}

void TaskThread::Post(std::function<void()> task) {
    const std::lock_guard hold(lock_);
    tasks_.push_back(std::move(task));
    changed_.notify_one();
}

void TaskThread::Drain() {
    // Shared, as the thread is not done with it when the waiter wakes.
    const auto done = std::make_shared<std::promise<void>>();
    Post([done] { done->set_value(); });
    done->get_future().wait();
}

void TaskThread::Run() {
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::unique_lock hold(lock_);
    for (;;) {
        changed_.wait(hold, [this] { return !tasks_.empty(); });
        {
            const std::function<void()> task = std::exchange(tasks_.front(), {});
            tasks_.pop_front();
            hold.unlock();
            task();
        }  // what it held is released outside the lock too
        hold.lock();
    }
}

void RuntimeThreads::Drain() {
    for (TaskThread* thread :
         {&advertisements[0], &advertisements[1], &notifications, &connections, &completions}) {
        thread->Drain();
    }
}

RuntimeThreads& Threads() {
    static RuntimeThreads* const threads = new RuntimeThreads;
    return *threads;
}

}  // namespace brennix
