#include "transport/serial/serial_port.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/posix/standard_descriptors.h"
#include "platform/tick.h"
#include "support/memory.h"

namespace tarvik {

namespace {

constexpr std::size_t kTakenAtOnce = 4096;

}  // namespace

struct PortHandle {
    int file = -1;
    int wake = -1;  // readable from the first WakePort on
};

// What a thread sleeps on: its direction of the port, and the port's wake-up.
struct PortTransfer {
    PortHandle* port = nullptr;
    int poll = -1;
    bool hung_up = false;
    // Bytes taken from the tty that ReadPort has not returned yet. `emptied`: they were all it had.
    std::uint8_t bytes[kTakenAtOnce];
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
    bool emptied = false;
};

namespace {

void CloseIfOpen(int descriptor) {
    if (descriptor >= 0) ::close(descriptor);
}

// A cooked tty would change bytes. All other settings stay.
bool SetRaw(int file) {
    termios settings{};
    if (::tcgetattr(file, &settings) != 0) return false;
    ::cfmakeraw(&settings);
    return ::tcsetattr(file, TCSANOW, &settings) == 0;
}

// The mark keeps out everybody but root, and the lock also root's programs, if they ask for it.
bool Claim(int file) {
    if (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) errno = EBUSY;  // as open reports the mark
        return false;
    }
    return ::ioctl(file, TIOCEXCL) == 0;
}

bool OpenFiles(PortHandle* port, const char* path) {
    const StandardDescriptorsTaken standard;
    port->wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (port->wake < 0) return false;
    const int file = ::open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return false;
    if (!Claim(file)) {
        const int error = errno;
        ::close(file);  // only that: the port, its mark and its bytes may be another program's
        errno = error;
        return false;
    }
    port->file = file;
    return SetRaw(file);
}

bool Watch(int poll, int descriptor, std::uint32_t events) {
    epoll_event watched{};
    watched.events = events;
    watched.data.fd = descriptor;
    return ::epoll_ctl(poll, EPOLL_CTL_ADD, descriptor, &watched) == 0;
}

enum class Awaited : std::uint8_t { kPort, kWoken, kTimeout, kFailed };

Awaited Await(PortTransfer* transfer, std::int32_t timeout_ms) {
    epoll_event events[2];
    const int count = ::epoll_wait(transfer->poll, events, 2, timeout_ms);
    if (count < 0) return errno == EINTR ? Awaited::kPort : Awaited::kFailed;
    Awaited awaited = Awaited::kTimeout;
    for (int i = 0; i < count; ++i) {
        if (events[i].data.fd == transfer->port->wake) return Awaited::kWoken;
        if ((events[i].events & (EPOLLHUP | EPOLLERR)) != 0) transfer->hung_up = true;
        awaited = Awaited::kPort;
    }
    return awaited;
}

// Takes what the tty has. Asking for the number of bytes before and after would cost two more
// system calls for each packet. False: the tty was hung up.
bool TakeBytes(PortTransfer* transfer) {
    const ssize_t got = ::read(transfer->port->file, transfer->bytes, sizeof transfer->bytes);
    if (got > 0) {
        transfer->begin = 0;
        transfer->end = static_cast<std::uint32_t>(got);
        transfer->emptied = transfer->end < sizeof transfer->bytes;
        return true;
    }
    if (got < 0 && errno == EINTR) return true;
    if (got < 0 && errno == EAGAIN && !transfer->hung_up) {
        transfer->emptied = true;
        return true;
    }
    if (got == 0 || errno == EAGAIN) errno = EIO;
    return false;
}

// Drops what the driver still holds: closing the port could wait half a minute for it.
TransferOutcome GiveUp(PortTransfer* transfer, TransferOutcome outcome) {
    ::tcflush(transfer->port->file, TCOFLUSH);
    return outcome;
}

}  // namespace

PortHandle* OpenPort(const char* path) {
    auto* port = NewTracked<PortHandle>();
    if (port == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    if (OpenFiles(port, path)) return port;
    const int error = errno;
    ClosePort(port);
    errno = error;
    return nullptr;
}

void WakePort(PortHandle* port) { ::eventfd_write(port->wake, 1); }

void ClosePort(PortHandle* port) {
    if (port->file >= 0) {
        // While the port is ours alone: whoever opens it next must neither send nor receive what is
        // left, nor lose bytes of its own. Without this, close waits until the driver has sent it.
        ::tcflush(port->file, TCIOFLUSH);
        // The mark belongs to the tty, not to the descriptor: let others open it again.
        ::ioctl(port->file, TIOCNXCL);
        ::flock(port->file, LOCK_UN);  // a forked process may keep a copy of the descriptor
        ::close(port->file);
    }
    CloseIfOpen(port->wake);
    DeleteTracked(port);
}

PortTransfer* CreateTransfer(PortHandle* port, TransferKind kind) {
    auto* transfer = NewTracked<PortTransfer>();
    if (transfer == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    transfer->port = port;
    {
        const StandardDescriptorsTaken standard;
        transfer->poll = ::epoll_create1(EPOLL_CLOEXEC);
    }
    const std::uint32_t direction = kind == TransferKind::kReceive ? EPOLLIN : EPOLLOUT;
    if (transfer->poll < 0 || !Watch(transfer->poll, port->file, direction) ||
        !Watch(transfer->poll, port->wake, EPOLLIN)) {
        const int error = errno;
        CloseTransfer(transfer);
        errno = error;
        return nullptr;
    }
    return transfer;
}

void* TransferEvent(const PortTransfer* transfer) {
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(transfer->poll));
}

void CloseTransfer(PortTransfer* transfer) {
    CloseIfOpen(transfer->poll);
    DeleteTracked(transfer);
}

bool WaitForData(PortTransfer* transfer, std::int32_t timeout_ms) {
    transfer->emptied = false;
    return Await(transfer, timeout_ms) != Awaited::kFailed;
}

bool QueuedBytes(PortTransfer* transfer, std::uint32_t* count) {
    const bool look = transfer->begin == transfer->end && !transfer->emptied;
    if (look && !TakeBytes(transfer)) return false;
    *count = transfer->end - transfer->begin;
    return true;
}

TransferOutcome ReadPort(PortTransfer* transfer, void* data, std::uint32_t size) {
    const std::uint32_t count = std::min(size, transfer->end - transfer->begin);
    std::memcpy(data, transfer->bytes + transfer->begin, count);
    transfer->begin += count;
    return {TransferStep::kDone, count, 0};
}

TransferOutcome WritePort(PortTransfer* transfer, const void* data, std::uint32_t size,
                          std::int32_t timeout_ms) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    const std::uint64_t deadline = TickMs() + static_cast<std::uint64_t>(timeout_ms);
    std::uint32_t written = 0;
    while (written < size) {
        const ssize_t put = ::write(transfer->port->file, bytes + written, size - written);
        if (put > 0) {
            written += static_cast<std::uint32_t>(put);
            continue;
        }
        const int error = put == 0 ? EAGAIN : errno;
        if (error != EAGAIN && error != EINTR) {
            const TransferStep step = written == 0 ? TransferStep::kStart : TransferStep::kResult;
            return GiveUp(transfer, {step, written, static_cast<std::uint32_t>(error)});
        }
        const std::uint64_t now = TickMs();
        if (now >= deadline) return GiveUp(transfer, {TransferStep::kTimeout, written, 0});
        const Awaited awaited = Await(transfer, static_cast<std::int32_t>(deadline - now));
        if (awaited == Awaited::kWoken || awaited == Awaited::kFailed) {
            return GiveUp(transfer,
                          {TransferStep::kWait, written, static_cast<std::uint32_t>(awaited)});
        }
    }
    return {TransferStep::kDone, written, 0};
}

}  // namespace tarvik
