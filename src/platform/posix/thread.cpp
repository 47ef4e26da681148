#include "platform/thread.h"

#include <errno.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <new>

#include "platform/posix/monitor.h"
#include "platform/thread_list.h"
#include "platform/thread_stack.h"

namespace tarvik {

namespace {

constexpr std::size_t kNameSize = 16;  // what the kernel keeps, with the NUL

}  // namespace

struct OsThread final : ListedThread {
    bool HasEnded() override;
    bool IsCurrent() const override;

    OsThreadEntry entry = nullptr;
    void* argument = nullptr;
    char name[kNameSize] = {};
    mutable Monitor monitor;
    // Guarded by monitor.
    pthread_t id{};
    pid_t kernel_id = 0;    // set by the thread
    bool ended = false;     // the entry has returned
    bool detached = false;  // its handle was closed before
    bool joined = false;    // `id` is no longer valid
};

namespace {

void* Run(void* argument) {
    auto* thread = static_cast<OsThread*>(argument);
    {
        const MonitorGuard guard(thread->monitor);
        thread->kernel_id = ::gettid();
    }
    ::pthread_setname_np(::pthread_self(), thread->name);
    thread->entry(thread->argument);
    const MonitorGuard guard(thread->monitor);
    thread->ended = true;
    thread->monitor.WakeAll();
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

// The default attributes, with the stack that they state or a larger one. The application may have
// made detached threads the default; ours are joined.
class ThreadAttributes {
public:
    ThreadAttributes() : error_(::pthread_getattr_default_np(&attributes_)) {
        std::size_t size = 0;
        if (error_ != 0) return;
        ::pthread_attr_getstacksize(&attributes_, &size);
        ::pthread_attr_setstacksize(&attributes_, ThreadStackSize(size));
        ::pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_JOINABLE);
    }
    ~ThreadAttributes() {
        if (error_ == 0) ::pthread_attr_destroy(&attributes_);
    }
    ThreadAttributes(const ThreadAttributes&) = delete;
    ThreadAttributes& operator=(const ThreadAttributes&) = delete;

    int Error() const { return error_; }
    const pthread_attr_t* Get() const { return &attributes_; }

private:
    pthread_attr_t attributes_;
    int error_;
};

int CreateWithSignalsBlocked(OsThread* thread) {
    const ThreadAttributes attributes;
    if (attributes.Error() != 0) return attributes.Error();
    sigset_t blocked;
    sigset_t previous;
    FillThreadSignalMask(&blocked);
    ::pthread_sigmask(SIG_SETMASK, &blocked, &previous);
    const int error = ::pthread_create(&thread->id, attributes.Get(), &Run, thread);
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return error;
}

}  // namespace

OsThread* OsThreadStart(OsThreadEntry entry, void* argument, const char* description) {
    auto* thread = new (std::nothrow) OsThread;
    if (thread == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    thread->entry = entry;
    thread->argument = argument;
    std::strncpy(thread->name, description, kNameSize - 1);
    ListThread(thread);
    int error = 0;
    {
        const MonitorGuard guard(thread->monitor);  // the list may already be asking for `id`
        error = CreateWithSignalsBlocked(thread);
    }
    if (error != 0) {
        UnlistThread(thread);
        errno = error;
        return nullptr;
    }
    return thread;
}

namespace {

bool AwaitEntryEnd(OsThread* thread, const Deadline& deadline, std::int32_t timeout_ms) {
    MonitorGuard guard(thread->monitor);
    while (!thread->ended) {
        if (timeout_ms == 0) return false;
        if (!guard.Sleep(deadline) && !thread->ended) return false;
    }
    return true;
}

bool ThreadExists(pid_t kernel_id) {
    return ::syscall(SYS_tgkill, ::getpid(), kernel_id, 0) == 0 || errno != ESRCH;
}

// Never waits: after its entry, a thread runs destructors that the application may have given it.
bool TryJoin(OsThread* thread) {
    const MonitorGuard guard(thread->monitor);
    if (!thread->joined) {
        thread->joined = thread->detached ? !ThreadExists(thread->kernel_id)
                                          : ::pthread_tryjoin_np(thread->id, nullptr) == 0;
    }
    return thread->joined;
}

}  // namespace

// Returns true only when the thread is out of the library's code, so that it may be unloaded.
bool OsThreadJoin(OsThread* thread, std::int32_t timeout_ms) {
    constexpr timespec kPause = {0, 200'000};
    const Deadline deadline(timeout_ms);
    if (!AwaitEntryEnd(thread, deadline, timeout_ms)) return false;
    while (!TryJoin(thread)) {
        if (timeout_ms == 0 || deadline.HasPassed()) return false;
        ::nanosleep(&kPause, nullptr);
    }
    return true;
}

bool OsThread::HasEnded() { return OsThreadJoin(this, 0); }

bool OsThread::IsCurrent() const {
    const MonitorGuard guard(monitor);
    return !ended && kernel_id == ::gettid();  // after its end, another thread may have the number
}

bool OsThreadTerminate(OsThread*) { return false; }

// Nobody terminates threads.
TerminationShield::TerminationShield() = default;
TerminationShield::~TerminationShield() = default;

void OsThreadClose(OsThread* thread) {
    if (thread == nullptr) return;
    if (!OsThreadJoin(thread, 0)) {
        const MonitorGuard guard(thread->monitor);
        if (!thread->joined) thread->detached = ::pthread_detach(thread->id) == 0;
    }
    CloseListedThread(thread);
}

bool OsThreadIsCurrent(const OsThread* thread) { return thread != nullptr && thread->IsCurrent(); }

void* OsThreadHandle(const OsThread* thread) { return reinterpret_cast<void*>(thread->id); }

namespace {

thread_local std::uint32_t current_id = 0;
thread_local std::intptr_t thread_value = 0;

}  // namespace

std::uint32_t OsCurrentThreadId() {
    if (current_id == 0) current_id = static_cast<std::uint32_t>(::gettid());
    return current_id;
}

std::intptr_t OsThreadValue() { return thread_value; }

void OsSetThreadValue(std::intptr_t value) { thread_value = value; }

std::int32_t OsLastError() { return errno; }

void OsSetLastError(std::int32_t error) { errno = error; }

}  // namespace tarvik
