// A thread of the runtime: runs posted tasks in order.

#pragma once

#include <deque>
#include <functional>

#include "wine/bluetooth/lock.h"

namespace brennix {

// Never ends: its owner exists as long as the process.
class TaskThread {
public:
    TaskThread();

    void Post(std::function<void()> task);
    // Waits until all tasks posted before have run. Not on this thread.
    void Drain();

private:
    void Run();
    void RunNext(std::unique_lock<Lock>& hold);

    Lock lock_;
    Condition changed_;
    std::deque<std::function<void()>> tasks_;  // guarded by lock_
};

// Completions of operations, connection changes and notifications each keep their order.
// Advertisements come on two threads in turn, so that two handlers may run at once.
struct RuntimeThreads {
    TaskThread completions;
    TaskThread connections;
    TaskThread notifications;
    TaskThread advertisements[2];

    void Drain();
};
RuntimeThreads& Threads();

}  // namespace brennix
