#include "process/command_run.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "process/process.h"

namespace brennix {

namespace {

int ExitCode(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

CommandRun::CommandRun(EventLoop* loop) : loop_(loop) {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
        ::sigaddset(&set, number);
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
    signals_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    loop_->Watch(signals_, EPOLLIN, [this](std::uint32_t) { OnSignal(); });
}

CommandRun::~CommandRun() {
    if (child_ > 0) ::kill(child_, SIGTERM);  // after an error; otherwise it has ended
    loop_->Unwatch(signals_);
    ::close(signals_);
}

void CommandRun::OnSignal() {
    signalfd_siginfo info = {};
    while (::read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        const int number = static_cast<int>(info.ssi_signo);
        if (number == SIGCHLD) {
            OnChildEnd();
        } else if (child_ > 0) {
            ::kill(child_, number);  // its end will end the program
        } else {
            loop_->Stop();
        }
    }
}

void CommandRun::OnChildEnd() {
    int status = 0;
    if (child_ <= 0 || ::waitpid(child_, &status, WNOHANG) != child_) return;
    child_ = -1;
    child_code_ = ExitCode(status);
    loop_->Stop();
}

int CommandRun::Run(const std::vector<std::string>& command,
                    const std::map<std::string, std::string>& environment) {
    if (!command.empty()) child_ = StartProcess(command, environment);
    loop_->Run();
    if (child_ > 0) {  // the loop was stopped for another reason
        ::kill(child_, SIGTERM);
        int status = 0;
        ::waitpid(child_, &status, 0);
        child_ = -1;
        child_code_ = ExitCode(status);
    }
    return child_code_;
}

}  // namespace brennix
