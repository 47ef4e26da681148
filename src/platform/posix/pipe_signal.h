#pragma once

#include <signal.h>
#include <time.h>

namespace tarvik {

// While it lives, a write of the calling thread to a pipe without a reader fails without SIGPIPE,
// which would end the process. A SIGPIPE that was pending before stays so.
class PipeSignalHeld {
public:
    PipeSignalHeld() {
        sigset_t pending;
        ::sigpending(&pending);
        was_pending_ = ::sigismember(&pending, SIGPIPE) == 1;
        ::sigemptyset(&pipe_);
        ::sigaddset(&pipe_, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~PipeSignalHeld() {
        constexpr timespec kNow = {0, 0};
        if (!was_pending_) ::sigtimedwait(&pipe_, nullptr, &kNow);
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    PipeSignalHeld(const PipeSignalHeld&) = delete;
    PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;

private:
    sigset_t pipe_;
    sigset_t before_;
    bool was_pending_;
};

}  // namespace tarvik
