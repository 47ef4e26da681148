#include "platform/posix/descriptor_output.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/posix/standard_descriptors.h"

namespace tarvik {

DescriptorKind KindOf(int descriptor) {
    struct stat found {};
    if (::fstat(descriptor, &found) != 0) return DescriptorKind::kClosed;
    if (S_ISFIFO(found.st_mode)) return DescriptorKind::kPipe;
    if (S_ISSOCK(found.st_mode)) return DescriptorKind::kSocket;
    return S_ISCHR(found.st_mode) && ::isatty(descriptor) != 0 ? DescriptorKind::kTerminal
                                                               : DescriptorKind::kFile;
}

bool NeverWaits(DescriptorKind kind) {
    return kind == DescriptorKind::kPipe || kind == DescriptorKind::kSocket;
}

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

namespace {

bool HasRoom(int descriptor) {
    pollfd output = {descriptor, POLLOUT, 0};
    return ::poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLNVAL)) == 0;
}

// What is moved from another pipe does not wait, unlike a write: after a look for room, other
// processes may have taken it.
ssize_t MoveIntoPipe(int descriptor, TextPieces* text) {
    int own[2];
    if (::pipe2(own, O_NONBLOCK | O_CLOEXEC) != 0) return -1;
    ssize_t taken = ::writev(own[1], text->Begin(), static_cast<int>(text->Count()));
    if (taken > 0) {
        taken = ::splice(own[0], nullptr, descriptor, nullptr, static_cast<std::size_t>(taken),
                         SPLICE_F_NONBLOCK);
    }
    ::close(own[0]);
    ::close(own[1]);
    return taken;
}

// The pipe is opened a second time: O_NONBLOCK then holds for us alone, while that of the
// descriptor holds for all processes that share it. It stays open for this text only, so that its
// reader sees the end when the application closes its own.
ssize_t WriteToPipe(int descriptor, TextPieces* text) {
    const StandardDescriptorsTaken standard;
    char path[32];
    ::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
    const int own = ::open(path, O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (own >= 0) {
        const ssize_t written = ::writev(own, text->Begin(), static_cast<int>(text->Count()));
        ::close(own);
        return written;
    }
    // Without /proc, or after a change of user.
    return HasRoom(descriptor) ? MoveIntoPipe(descriptor, text) : -1;
}

ssize_t WriteToSocket(int descriptor, TextPieces* text) {
    msghdr message{};
    message.msg_iov = text->Begin();
    message.msg_iovlen = text->Count();
    return ::sendmsg(descriptor, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace

ssize_t WriteAtOnce(int descriptor, DescriptorKind kind, TextPieces* text) {
    return kind == DescriptorKind::kPipe ? WriteToPipe(descriptor, text)
                                         : WriteToSocket(descriptor, text);
}

}  // namespace tarvik
