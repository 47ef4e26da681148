#include "platform/thread_list.h"

#include <atomic>

#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "platform/tick.h"

namespace tarvik {

class ThreadList {
public:
    void Add(ListedThread* thread) {
        const LockGuard hold(lock_);
        DeleteEnded();
        thread->next_ = first_;
        first_ = thread;
    }

    void Remove(ListedThread* thread) {
        const LockGuard hold(lock_);
        for (ListedThread** link = &first_; *link != nullptr; link = &(*link)->next_) {
            if (*link != thread) continue;
            Delete(link);
            return;
        }
    }

    void Close(ListedThread* thread) {
        const LockGuard hold(lock_);
        thread->closed_ = true;
        DeleteEnded();
    }

    bool RunsAnother() {
        const LockGuard hold(lock_);
        DeleteEnded();
        for (ListedThread* thread = first_; thread != nullptr; thread = thread->next_) {
            if (!thread->IsCurrent() && !thread->HasEnded()) return true;
        }
        return false;
    }

    // Calls `take` if every thread has ended, while none can be added.
    template <typename Take>
    void IfAllEnded(Take take) {
        const LockGuard hold(lock_);
        for (ListedThread* thread = first_; thread != nullptr; thread = thread->next_) {
            if (!thread->HasEnded()) return;
        }
        DeleteEnded();
        take();
    }

private:
    static void Delete(ListedThread** link) {
        ListedThread* ended = *link;
        *link = ended->next_;
        delete ended;
    }

    void DeleteEnded() {
        for (ListedThread** link = &first_; *link != nullptr;) {
            if ((*link)->closed_ && (*link)->HasEnded()) {
                Delete(link);
            } else {
                link = &(*link)->next_;
            }
        }
    }

    OsLock lock_;
    ListedThread* first_ = nullptr;  // guarded by lock_
};

namespace {

Immortal<ThreadList> threads;

// The reference that keeps the library loaded. Changed outside the list's lock: the system's loader
// has a lock of its own, under which an application may be calling the library.
std::atomic<void*> library_reference{nullptr};

void HoldLibrary() {
    if (library_reference.load() != nullptr) return;
    void* taken = OsHoldLibrary();
    void* none = nullptr;
    if (!library_reference.compare_exchange_strong(none, taken)) OsReleaseLibrary(taken);
}

}  // namespace

// In this order: once the list has the thread, the reference is not given up.
void ListThread(ListedThread* thread) {
    threads->Add(thread);
    HoldLibrary();
}

void UnlistThread(ListedThread* thread) { threads->Remove(thread); }

void CloseListedThread(ListedThread* thread) { threads->Close(thread); }

bool OsAllowUnloading(std::uint32_t patience_ms) {
    const std::uint64_t deadline = TickMs() + patience_ms;
    while (threads->RunsAnother() && TickMs() < deadline)
        SleepMs(1);
    void* reference = nullptr;
    bool ended = false;
    threads->IfAllEnded([&] {
        reference = library_reference.exchange(nullptr);
        ended = true;
    });
    OsReleaseLibrary(reference);
    return ended;
}

bool OsThreadsMayRun() { return library_reference.load() != nullptr; }

// If threads have met at the list's lock, it has a handle that would leak.
void OsEndThreads() {
    if (!OsThreadsMayRun()) threads->~ThreadList();
}

}  // namespace tarvik
