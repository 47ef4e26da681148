#include "ports/pty.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace brennix {

[[noreturn]] static void Fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The host's end, opened for inspection.
class Pty::OtherEnd {
public:
    explicit OtherEnd(const std::string& path)
        : file_(::open(path.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
    ~OtherEnd() {
        if (file_ >= 0) ::close(file_);
    }
    OtherEnd(const OtherEnd&) = delete;
    OtherEnd& operator=(const OtherEnd&) = delete;

    int Unread() const {
        int count = 0;
        return ::ioctl(file_, FIONREAD, &count) == 0 ? count : 0;
    }

private:
    int file_;
};

Pty::Pty(EventLoop* loop, Handlers handlers) : loop_(loop), handlers_(std::move(handlers)) {}

void Pty::Open() {
    if (IsOpen()) return;
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master_ < 0) Fail("posix_openpt");
    if (::grantpt(master_) != 0 || ::unlockpt(master_) != 0) Fail("unlockpt");
    std::array<char, 64> path{};
    if (::ptsname_r(master_, path.data(), path.size()) != 0) Fail("ptsname");
    slave_path_ = path.data();

    // Set through the master, since opening the slave would count as a host.
    termios settings = {};
    if (::tcgetattr(master_, &settings) != 0) Fail("tcgetattr");
    ::cfmakeraw(&settings);
    if (::tcsetattr(master_, TCSANOW, &settings) != 0) Fail("tcsetattr");

    watch_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (watch_ < 0 || ::inotify_add_watch(watch_, slave_path_.c_str(), IN_OPEN | IN_CLOSE) < 0) {
        Fail("inotify");
    }
    ++generation_;
    piece_timer_runs_ = false;
    // Watched first, so that data sent after an opening is not taken for earlier data.
    loop_->Watch(
        watch_, EPOLLIN, [this](std::uint32_t) { OnWatch(); }, true);
    // Edge-triggered, since a port that nobody has open reports a hang-up continuously.
    loop_->Watch(master_, EPOLLIN | EPOLLET, [this](std::uint32_t events) { OnReady(events); });
    watches_room_ = false;
}

// Only while bytes wait for room; otherwise every byte that the host reads would be an edge.
void Pty::WatchRoom(bool wanted) {
    if (!IsOpen() || watches_room_ == wanted) return;
    watches_room_ = wanted;
    loop_->Change(master_, EPOLLIN | EPOLLET | (wanted ? EPOLLOUT : 0u));
}

void Pty::Close() {
    if (!IsOpen()) return;
    loop_->Unwatch(watch_);
    loop_->Unwatch(master_);
    ::close(watch_);
    ::close(master_);
    watch_ = -1;
    master_ = -1;
    ++generation_;
    host_there_ = false;
    hosts_ = 0;
    outgoing_.clear();
    cut_after_ = -1;
}

// The hang-up of the pseudo-terminal is not enough: a host that closes and reopens the port quickly
// leaves none to see.
void Pty::OnWatch() {
    alignas(inotify_event) std::array<char, 4096> buffer;
    bool left = false;
    for (;;) {
        const ssize_t size = ::read(watch_, buffer.data(), buffer.size());
        if (size <= 0) break;
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if ((event->mask & IN_OPEN) != 0) {
                ++opens_;
                ++hosts_;
            } else if (hosts_ > 0 && --hosts_ == 0) {
                left = true;
            }
        }
    }
    if (left) HostLeft();
}

Bytes Pty::TakeUnread() {
    Bytes unread;
    std::array<std::uint8_t, 4096> buffer;
    for (;;) {
        const ssize_t size = ::read(master_, buffer.data(), buffer.size());
        if (size <= 0) return unread;
        AppendBytes(&unread, ByteSpan(buffer.data(), static_cast<std::size_t>(size)));
    }
}

bool Pty::IsHungUp() const {
    pollfd state = {.fd = master_, .events = 0, .revents = 0};
    return ::poll(&state, 1, 0) == 1 && (state.revents & POLLHUP) != 0;
}

// The host's last bytes still count; answers to them do not. If another host has opened the port
// already, its bytes start with SYNC.
void Pty::HostLeft() {
    const Bytes unread = TakeUnread();
    auto next_host = unread.end();
    if (!IsHungUp()) {
        const Bytes sync = MakePacket(type::kSync, {});
        next_host = std::find_end(unread.begin(), unread.end(), sync.begin(), sync.end());
    }
    Cork();
    if (next_host != unread.begin()) handlers_.received({unread.begin(), next_host});
    outgoing_.clear();
    DiscardUnread();
    host_there_ = false;
    handlers_.host_left();
    if (next_host != unread.end()) {
        host_there_ = true;
        handlers_.received({next_host, unread.end()});
    }
    Uncork();
}

// Bytes that a host leaves unread are lost, as on a real port; a pseudo-terminal would keep them
// for the next host. Setting the attributes through the master flushes the slave's input.
void Pty::DiscardUnread() {
    termios settings = {};
    ::tcflush(master_, TCOFLUSH);
    if (::tcgetattr(master_, &settings) == 0) ::tcsetattr(master_, TCSAFLUSH, &settings);
}

void Pty::OnReady(std::uint32_t events) {
    std::array<std::uint8_t, 65536> buffer;
    Cork();
    const std::uint64_t generation = generation_;
    while (generation == generation_) {
        const ssize_t size = ::read(master_, buffer.data(), buffer.size());
        if (size <= 0) break;
        host_there_ = true;
        handlers_.received(ByteSpan(buffer.data(), static_cast<std::size_t>(size)));
        // A pseudo-terminal returns what it has, up to 4095 bytes. Fewer bytes were all of it, and
        // more to come is a new edge.
        if (size < 4095 && (events & EPOLLHUP) == 0) break;
    }
    Uncork();
}

void Pty::Send(ByteSpan bytes) {
    if (!IsOpen() || !host_there_) return;
    AppendBytes(&outgoing_, bytes);
    if (corked_ == 0) Flush();
}

void Pty::Uncork() {
    if (--corked_ == 0) Flush();
}

void Pty::SetPieces(std::size_t bytes, std::chrono::milliseconds interval) {
    piece_size_ = bytes;
    piece_interval_ = interval;
    Flush();
}

void Pty::FlushPiece() {
    piece_timer_runs_ = false;
    Flush();
}

// A hang-up discards unread bytes, so the host gets time to read those before the cut.
void Pty::CutOnceRead() {
    const auto other_end = std::make_shared<OtherEnd>(slave_path_);
    AwaitRead(other_end, false, 0);
}

void Pty::AwaitRead(const std::shared_ptr<OtherEnd>& other_end, bool seen, int round) {
    constexpr int kRoundsToBeSeen = 50;  // of a millisecond each
    constexpr int kRoundsToBeRead = 2000;
    const int unread = other_end->Unread();
    const bool done = seen ? unread == 0 || round >= kRoundsToBeRead : round >= kRoundsToBeSeen;
    if (done) return handlers_.cut();
    loop_->After(std::chrono::milliseconds(1),
                 [this, other_end, seen = seen || unread > 0, round, generation = generation_] {
                     if (generation == generation_) AwaitRead(other_end, seen, round + 1);
                 });
}

void Pty::Flush() {
    while (IsOpen() && !outgoing_.empty() && !piece_timer_runs_) {
        std::size_t size = outgoing_.size();
        if (piece_size_ != 0) size = std::min(size, piece_size_);
        if (cut_after_ >= 0) size = std::min(size, static_cast<std::size_t>(cut_after_));
        const ssize_t written = size == 0 ? 0 : ::write(master_, outgoing_.data(), size);
        // Full: the next edge continues. Gone: the next read shows it.
        if (written < 0) return WatchRoom(true);
        outgoing_.erase(outgoing_.begin(), outgoing_.begin() + written);
        if (cut_after_ >= 0) cut_after_ -= written;
        if (cut_after_ == 0) {
            cut_after_ = -1;
            outgoing_.clear();
            host_there_ = false;  // nothing more is sent
            return CutOnceRead();
        }
        if (piece_size_ != 0 && !outgoing_.empty()) {
            piece_timer_runs_ = true;
            loop_->After(piece_interval_, [this, generation = generation_] {
                if (generation == generation_) FlushPiece();
            });
        }
    }
    if (outgoing_.empty()) WatchRoom(false);
}

}  // namespace brennix
