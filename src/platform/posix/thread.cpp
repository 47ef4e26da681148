#include "platform/thread.h"

#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <new>

#include "platform/posix/monitor.h"

namespace tarvik {

namespace {

constexpr std::size_t kNameSize = 16;  // what the kernel keeps, with the NUL

}  // namespace

// Shared by the thread and its handle; the last of the two deletes it.
struct OsThread {
    OsThreadEntry entry;
    void* argument;
    char name[kNameSize];
    pthread_t id;
    std::atomic<int> references;
    mutable Monitor monitor;
    bool ended;   // guarded by monitor; no code of the library runs on the thread after this
    bool joined;  // guarded by monitor; `id` is no longer valid
};

namespace {

void Release(OsThread* thread) {
    if (thread->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete thread;
}

// Also runs when the thread is cancelled: cancellation unwinds the stack.
struct EndNotice {
    OsThread* thread;
    ~EndNotice() {
        {
            const MonitorGuard guard(thread->monitor);
            thread->ended = true;
            thread->monitor.WakeAll();
        }
        Release(thread);
    }
};

void* Run(void* argument) {
    auto* thread = static_cast<OsThread*>(argument);
    const EndNotice notice{thread};
    ::pthread_setname_np(::pthread_self(), thread->name);
    thread->entry(thread->argument);
    return nullptr;
}

// Signal handlers of the application belong on its own threads. Faults stay deliverable: if
// blocked, they would kill the process without running the handler that reports them.
void FillThreadSignalMask(sigset_t* blocked) {
    ::sigfillset(blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
        ::sigdelset(blocked, fault);
    }
}

int CreateWithSignalsBlocked(OsThread* thread) {
    sigset_t blocked;
    sigset_t previous;
    FillThreadSignalMask(&blocked);
    ::pthread_sigmask(SIG_SETMASK, &blocked, &previous);
    const int error = ::pthread_create(&thread->id, nullptr, &Run, thread);
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return error;
}

}  // namespace

OsThread* OsThreadStart(OsThreadEntry entry, void* argument, const char* description) {
    auto* thread = new (std::nothrow) OsThread{};
    if (thread == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    thread->entry = entry;
    thread->argument = argument;
    std::strncpy(thread->name, description, kNameSize - 1);
    thread->references.store(2, std::memory_order_relaxed);
    const int error = CreateWithSignalsBlocked(thread);
    if (error != 0) {
        delete thread;
        errno = error;
        return nullptr;
    }
    return thread;
}

// Returns only when the thread is out of the library's code, so that the library may be unloaded.
bool OsThreadJoin(OsThread* thread, std::int32_t timeout_ms) {
    const Deadline deadline(timeout_ms);
    MonitorGuard guard(thread->monitor);
    while (!thread->ended) {
        if (timeout_ms == 0) return false;
        if (!guard.Sleep(deadline) && !thread->ended) return false;
    }
    if (!thread->joined) {
        ::pthread_join(thread->id, nullptr);
        thread->joined = true;
    }
    return true;
}

// Cancellation acts when the thread next sleeps, waits or does input or output. It unwinds the
// stack: guards of scopes release what they hold, and there must be no noexcept function and no
// `catch (...)` on the way. A loop without such a call never ends.
void OsThreadTerminate(OsThread* thread) {
    const MonitorGuard guard(thread->monitor);
    if (!thread->ended) ::pthread_cancel(thread->id);
}

void OsThreadClose(OsThread* thread) {
    if (thread == nullptr) return;
    {
        const MonitorGuard guard(thread->monitor);
        if (thread->ended && !thread->joined) {
            ::pthread_join(thread->id, nullptr);
        } else if (!thread->joined) {
            ::pthread_detach(thread->id);
        }
    }
    Release(thread);
}

bool OsThreadIsCurrent(const OsThread* thread) {
    if (thread == nullptr) return false;
    // After a join, another thread may have the id.
    const MonitorGuard guard(thread->monitor);
    return !thread->joined && ::pthread_equal(thread->id, ::pthread_self()) != 0;
}

void* OsThreadHandle(const OsThread* thread) { return reinterpret_cast<void*>(thread->id); }

std::uint32_t OsCurrentThreadId() {
    static thread_local std::uint32_t id = 0;
    if (id == 0) id = static_cast<std::uint32_t>(::gettid());
    return id;
}

namespace {

thread_local std::intptr_t thread_value = 0;

}  // namespace

std::intptr_t OsThreadValue() { return thread_value; }

void OsSetThreadValue(std::intptr_t value) { thread_value = value; }

std::int32_t OsLastError() { return errno; }

void OsSetLastError(std::int32_t error) { errno = error; }

}  // namespace tarvik
