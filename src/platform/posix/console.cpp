#include "platform/console.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <initializer_list>

#include "platform/posix/pipe_signal.h"
#include "platform/process.h"

namespace tarvik {

ConsoleResult OsAttachConsole() {
    static std::atomic<bool> attached{false};
    return attached.exchange(true) ? ConsoleResult::kAlreadyThere : ConsoleResult::kAttached;
}

namespace {

enum class Kind : unsigned char { kFile, kTerminal, kPipe, kSocket, kClosed };

Kind KindOf(int descriptor) {
    struct stat found {};
    if (::fstat(descriptor, &found) != 0) return Kind::kClosed;
    if (S_ISFIFO(found.st_mode)) return Kind::kPipe;
    if (S_ISSOCK(found.st_mode)) return Kind::kSocket;
    return S_ISCHR(found.st_mode) && ::isatty(descriptor) != 0 ? Kind::kTerminal : Kind::kFile;
}

}  // namespace

// Not by asking whether it is ready: it may be so for less than what is printed, and others print
// too.
bool OsStandardOutputMayWait() { return KindOf(::fileno(stdout)) == Kind::kTerminal; }

void OsCreateConsole() {}

namespace {

// Lines that a pipe or socket had no room for, and that nobody has been informed of.
std::atomic<unsigned> dropped_lines{0};

bool HasRoom(int descriptor) {
    pollfd output = {descriptor, POLLOUT, 0};
    return ::poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLNVAL)) == 0;
}

// What the application has printed comes first. `may_wait`: the text must not be lost. Otherwise a
// stream that another thread is using, or more text than a pipe with room is sure to take, is left
// to the application.
void PrintWhatTheApplicationHolds(bool may_wait) {
    if (may_wait) {
        ::fflush(stdout);
        return;
    }
    if (::ftrylockfile(stdout) != 0) return;
    const std::size_t held = ::__fpending(stdout);
    if (held > 0 && held <= PIPE_BUF && HasRoom(::fileno(stdout))) ::fflush_unlocked(stdout);
    ::funlockfile(stdout);
}

// Text in several pieces.
class Pieces {
public:
    void Add(const char* text, std::size_t length) {
        pieces_[count_++] = {const_cast<char*>(text), length};
        total_ += length;
    }
    iovec* Begin() { return pieces_; }
    std::size_t Count() const { return count_; }
    std::size_t Total() const { return total_; }

private:
    iovec pieces_[4];
    std::size_t count_ = 0;
    std::size_t total_ = 0;
};

void WriteAll(int descriptor, const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(descriptor, text, length);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && errno == EAGAIN) {  // another process has made the terminal so
            pollfd output = {descriptor, POLLOUT, 0};
            if (::poll(&output, 1, -1) >= 0) continue;
        }
        if (written <= 0) return;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

// The pipe is opened a second time: O_NONBLOCK then holds for us alone, while that of the
// descriptor holds for all processes that share it. It stays open for this text only, so that its
// reader sees the end when the application closes its own.
ssize_t WriteToPipe(int descriptor, Pieces* text) {
    char path[32];
    ::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
    const int own = ::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (own >= 0) {
        const ssize_t written = ::writev(own, text->Begin(), static_cast<int>(text->Count()));
        ::close(own);
        return written;
    }
    // Without /proc, or after a change of user. A pipe that has room takes this much at once.
    if (text->Total() > PIPE_BUF || !HasRoom(descriptor)) return -1;
    return ::writev(descriptor, text->Begin(), static_cast<int>(text->Count()));
}

ssize_t WriteToSocket(int descriptor, Pieces* text) {
    msghdr message{};
    message.msg_iov = text->Begin();
    message.msg_iovlen = text->Count();
    return ::sendmsg(descriptor, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool NeverWaits(Kind kind) { return kind == Kind::kPipe || kind == Kind::kSocket; }

// Returns the number of bytes that were taken; below 0: none.
ssize_t WriteAtOnce(int descriptor, Kind kind, Pieces* text) {
    return kind == Kind::kPipe ? WriteToPipe(descriptor, text) : WriteToSocket(descriptor, text);
}

void PrintAtOnce(int output, Kind kind, const char* text, std::size_t length) {
    const unsigned dropped = dropped_lines.exchange(0);
    char notice[64];
    int notice_length = 0;
    if (dropped > 0) {
        notice_length = ::snprintf(notice, sizeof notice, "[Console] Lines dropped: %u\n", dropped);
    }
    Pieces line;
    line.Add(notice, static_cast<std::size_t>(notice_length));
    line.Add(text, length);
    const ssize_t taken = WriteAtOnce(output, kind, &line);
    if (taken == static_cast<ssize_t>(line.Total())) return;
    dropped_lines += taken > notice_length ? 1 : dropped + 1;  // a long line may have been cut
}

}  // namespace

void OsPrint(const char* text, std::size_t length) {
    const PipeSignalHeld no_signal;
    const int output = ::fileno(stdout);
    const Kind kind = KindOf(output);
    if (kind == Kind::kClosed) return;
    PrintWhatTheApplicationHolds(!NeverWaits(kind));
    if (NeverWaits(kind)) {
        PrintAtOnce(output, kind, text, length);
    } else {
        WriteAll(output, text, length);
    }
}

// Not called here: a process that ends still has its threads.
void OsPrintAtProcessEnd(const char* text, std::size_t length) { OsPrint(text, length); }

void OsMessageBox(const char* text, const char* caption) {
    const PipeSignalHeld no_signal;
    const Kind kind = KindOf(STDERR_FILENO);
    Pieces box;
    for (const char* piece : {caption, "\n", text, "\n"})
        box.Add(piece, std::strlen(piece));
    if (NeverWaits(kind)) {
        WriteAtOnce(STDERR_FILENO, kind, &box);
        return;
    }
    for (std::size_t i = 0; i < box.Count(); ++i)
        WriteAll(STDERR_FILENO, static_cast<char*>(box.Begin()[i].iov_base),
                 box.Begin()[i].iov_len);
}

}  // namespace tarvik
