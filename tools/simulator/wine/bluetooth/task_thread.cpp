#include "wine/bluetooth/task_thread.h"

#include <windows.h>

#include <objbase.h>

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
    changed_.WakeAll();
}

void TaskThread::Drain() {
    const auto done = std::make_shared<Awaited<bool>>();
    Post([done] { done->Set(true); });
    done->Wait();
}

void TaskThread::Run() {
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    std::unique_lock hold(lock_);
    for (;;) {
        while (tasks_.empty())
            changed_.Wait(lock_, INFINITE);
        {
            const std::function<void()> task = std::exchange(tasks_.front(), {});
            tasks_.pop_front();
            hold.unlock();
            task();
        }  // releases what the task held, outside the lock too
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
