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

namespace {

// Only while a task runs: the system's own threads do not keep the program's apartment.
class Apartment {
public:
    Apartment() { ::CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
    ~Apartment() { ::CoUninitialize(); }
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
};

}  // namespace

void TaskThread::Run() {
    std::unique_lock hold(lock_);
    for (;;) {
        while (tasks_.empty())
            changed_.Wait(lock_, INFINITE);
        RunNext(hold);
    }
}

void TaskThread::RunNext(std::unique_lock<Lock>& hold) {
    {
        std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        hold.unlock();
        const Apartment inside;
        task();
        task = {};  // releases what it held, inside the apartment and outside the lock
    }
    hold.lock();
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
