#include "transport/cloud/tcp_connect.h"

#include <algorithm>
#include <array>
#include <span>

#include "platform/tick.h"
#include "transport/cloud/cloud_limits.h"

namespace tarvik {
namespace {

class Attempts {
public:
    explicit Attempts(const addrinfo* first) : next_address_(first) {}
    ~Attempts() {
        for (const ConnectAttempt& attempt : Pending())
            SystemClose(attempt.socket);
    }
    Attempts(const Attempts&) = delete;
    Attempts& operator=(const Attempts&) = delete;

    bool AllFailed() const { return count_ == 0 && next_address_ == nullptr; }

    // Begins the next attempt if it is due, else waits for the pending ones, at most until `until`.
    // True: *winner is connected.
    bool Step(std::uint64_t until, TcpConnection* winner) {
        if (!MayBegin()) return Await(until, winner);
        if (TickMs() >= next_begin_) return Begin(winner);
        return Await(std::min(until, next_begin_), winner);
    }

private:
    std::span<ConnectAttempt> Pending() { return {attempts_.data(), count_}; }
    // While no room is left, the next address waits for an attempt to fail.
    bool MayBegin() const { return next_address_ != nullptr && count_ < attempts_.size(); }

    bool Begin(TcpConnection* winner) {
        const addrinfo* const address = next_address_;
        next_address_ = SystemNextAddress(*address);
        const SystemSocket socket = SystemOpenSocket(*address);
        if (socket == kNoSocket) return false;
        switch (SystemBeginConnect(socket, *address)) {
            case TcpProgress::kDone:
                *winner = {.socket = socket, .address = address};
                return true;
            case TcpProgress::kPending:
                attempts_[count_++] = {socket, address, TcpProgress::kPending};
                next_begin_ =
                    TickMs() + static_cast<std::uint64_t>(GetCloudLimits().connect_stagger_ms);
                return false;
            case TcpProgress::kFailed:
                SystemClose(socket);
                return false;
        }
        return false;
    }

    bool Await(std::uint64_t until, TcpConnection* winner) {
        const std::uint64_t now = TickMs();
        const auto poll = static_cast<std::uint64_t>(GetCloudLimits().connect_poll_ms);
        const std::uint64_t left = until > now ? until - now : 0;
        SystemAwaitConnects(Pending(), static_cast<std::int32_t>(std::min(left, poll)));
        if (TakeWinner(winner)) return true;
        CloseFailed();
        return false;
    }

    bool TakeWinner(TcpConnection* winner) {
        for (ConnectAttempt& attempt : Pending()) {
            if (attempt.progress != TcpProgress::kDone) continue;
            *winner = {.socket = attempt.socket, .address = attempt.address};
            attempt = attempts_[--count_];
            return true;
        }
        return false;
    }

    void CloseFailed() {
        std::size_t kept = 0;
        for (const ConnectAttempt& attempt : Pending()) {
            if (attempt.progress == TcpProgress::kPending) {
                attempts_[kept++] = attempt;
            } else {
                SystemClose(attempt.socket);
                next_begin_ = 0;
            }
        }
        count_ = kept;
    }

    const addrinfo* next_address_;
    std::uint64_t next_begin_ = 0;  // tick
    std::array<ConnectAttempt, kMaxConnectAttempts> attempts_;
    std::size_t count_ = 0;
};

std::uint64_t Later(std::uint64_t now, std::uint64_t limit_ms) {
    return limit_ms == kNoConnectLimit ? kNoConnectLimit : now + limit_ms;
}

}  // namespace

TcpConnection ConnectToFirst(const TcpAddresses& addresses, const std::atomic<bool>& abort,
                             std::uint64_t limit_ms) {
    const std::uint64_t end = Later(TickMs(), limit_ms);
    Attempts attempts(addresses.first);
    TcpConnection winner;
    while (!abort && !attempts.AllFailed() && TickMs() < end) {
        if (attempts.Step(end, &winner)) {
            const CloudLimits& limits = GetCloudLimits();
            SystemDetectDeadPeer(winner.socket, limits.link_idle_ms, limits.link_dead_ms);
            return winner;
        }
    }
    winner.timed_out = !abort && !attempts.AllFailed();
    return winner;
}

}  // namespace tarvik
