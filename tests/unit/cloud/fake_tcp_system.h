#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

#include "transport/cloud/tcp_connect.h"
#include "unit/test_support.h"

// What is behind tcp_system.h in these tests: addresses that answer an attempt to connect as a test
// wants, on a tick that moves while the library waits.
namespace tarvik::test {

struct FakeAddress {
    enum class Answer : std::uint8_t { kAccept, kRefuse, kNoSocket };
    static constexpr std::uint64_t kNever = UINT64_MAX;

    Answer answer = Answer::kAccept;
    std::uint64_t after_ms = 0;  // 0: at once, without being waited for
};

// One at a time. An address is its number in the list.
class FakeTcpSystem {
public:
    explicit FakeTcpSystem(std::vector<FakeAddress> list);
    ~FakeTcpSystem();
    FakeTcpSystem(const FakeTcpSystem&) = delete;
    FakeTcpSystem& operator=(const FakeTcpSystem&) = delete;

    static constexpr std::uint64_t kHour = 3'600'000;

    void AbortAt(std::uint64_t ms) { abort_at_ = ms; }
    TcpConnection Connect(std::uint64_t limit_ms = kHour);

    // When each attempt began, in their order. Its number is the socket and the address.
    const std::vector<std::uint64_t>& Begun() const { return begun_; }
    const std::set<SystemSocket>& Open() const { return open_; }
    std::uint64_t NowMs() const { return TickMs() - kStart; }
    // What SystemDetectDeadPeer was called for.
    SystemSocket Watched() const { return watched_; }

    // --- the library's side ---
    static FakeTcpSystem& Current();
    const addrinfo* Next(const addrinfo& address) const { return At(NumberOf(address) + 1); }
    SystemSocket OpenSocket(const addrinfo& address);
    void Close(SystemSocket socket) { EXPECT_EQ(open_.erase(socket), 1u); }
    TcpProgress Begin(SystemSocket socket);
    void Await(std::span<ConnectAttempt> attempts, std::int32_t timeout_ms);
    void Watch(SystemSocket socket) { watched_ = socket; }

private:
    static constexpr std::uint64_t kStart = 1'000'000;

    const addrinfo* At(std::size_t number) const;
    std::size_t NumberOf(const addrinfo& address) const;
    std::uint64_t DecidedAt(SystemSocket socket) const;
    void Decide(ConnectAttempt* attempt) const;

    std::vector<FakeAddress> list_;
    FakeTick tick_{kStart};
    std::vector<std::uint64_t> begun_;
    std::set<SystemSocket> open_;
    SystemSocket watched_ = kNoSocket;
    std::uint64_t abort_at_ = FakeAddress::kNever;
    std::atomic<bool> aborted_{false};
};

}  // namespace tarvik::test
