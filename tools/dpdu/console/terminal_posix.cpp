#include "console/terminal.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace dpdu {
namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler may not take a lock");

void OnInterruption(int) { interrupted.store(true); }

}  // namespace

std::FILE* TakeStandardOutput(LibraryLines lines) {
    std::fflush(stdout);
    const int real = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (real < 0) return nullptr;

    if (lines == LibraryLines::kToStandardError) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
    } else if (const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC); nowhere >= 0) {
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    return fdopen(real, "w");
}

int PipeStandardOutput() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) return -1;
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    return ends[0];
}

int ReadDescriptor(int descriptor, char* buffer, unsigned size) {
    for (;;) {
        const ssize_t count = read(descriptor, buffer, size);
        if (count >= 0 || errno != EINTR) return static_cast<int>(count);
    }
}

void WriteText(std::FILE* stream, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stream);
}

void UseBinaryMode(std::FILE*) {}

bool MeansReaderGone(int error) { return error == EPIPE; }

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

bool StandardInputIsTerminal() { return isatty(STDIN_FILENO) == 1; }

TerminalSize SizeOfTerminal(std::FILE* stream) {
    winsize size = {};
    if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0) return {};
    return {size.ws_col, size.ws_row};
}

bool ShowsEscapes(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

void CatchInterruptions() {
    struct sigaction once = {};
    once.sa_handler = OnInterruption;
    once.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal_number, &once, nullptr);
    }
    struct sigaction ignored = {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignored, nullptr);
}

bool WasInterrupted() { return interrupted.load(); }

unsigned long OwnProcessId() { return static_cast<unsigned long>(getpid()); }

bool IsProcessRunning(unsigned long id) {
    return kill(static_cast<pid_t>(id), 0) == 0 || errno != ESRCH;
}

}  // namespace dpdu
