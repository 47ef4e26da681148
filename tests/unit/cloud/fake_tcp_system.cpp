#include "unit/cloud/fake_tcp_system.h"

#include <algorithm>
#include <utility>

namespace tarvik::test {
namespace {

FakeTcpSystem* current = nullptr;

std::size_t Index(SystemSocket socket) { return static_cast<std::size_t>(socket); }

}  // namespace

FakeTcpSystem::FakeTcpSystem(std::vector<FakeAddress> list) : list_(std::move(list)) {
    begun_.resize(list_.size(), FakeAddress::kNever);
    current = this;
}

FakeTcpSystem::~FakeTcpSystem() { current = nullptr; }

FakeTcpSystem& FakeTcpSystem::Current() { return *current; }

TcpConnection FakeTcpSystem::Connect(std::uint64_t limit_ms) {
    // Only tcp_system.h looks into addresses, so any pointer is as good as another.
    return ConnectToFirst({const_cast<addrinfo*>(At(0))}, aborted_, limit_ms);
}

const addrinfo* FakeTcpSystem::At(std::size_t number) const {
    return number < list_.size() ? reinterpret_cast<const addrinfo*>(&list_[number]) : nullptr;
}

std::size_t FakeTcpSystem::NumberOf(const addrinfo& address) const {
    return static_cast<std::size_t>(reinterpret_cast<const FakeAddress*>(&address) - list_.data());
}

SystemSocket FakeTcpSystem::OpenSocket(const addrinfo& address) {
    const std::size_t number = NumberOf(address);
    begun_[number] = NowMs();
    if (list_[number].answer == FakeAddress::Answer::kNoSocket) return kNoSocket;
    const auto socket = static_cast<SystemSocket>(number);
    open_.insert(socket);
    return socket;
}

TcpProgress FakeTcpSystem::Begin(SystemSocket socket) {
    ConnectAttempt attempt{socket, nullptr, TcpProgress::kPending};
    Decide(&attempt);
    return attempt.progress;
}

std::uint64_t FakeTcpSystem::DecidedAt(SystemSocket socket) const {
    const std::uint64_t after_ms = list_[Index(socket)].after_ms;
    return after_ms == FakeAddress::kNever ? after_ms : begun_[Index(socket)] + after_ms;
}

void FakeTcpSystem::Decide(ConnectAttempt* attempt) const {
    EXPECT_EQ(open_.count(attempt->socket), 1u);
    if (DecidedAt(attempt->socket) > NowMs()) return;
    const bool accepts = list_[Index(attempt->socket)].answer == FakeAddress::Answer::kAccept;
    attempt->progress = accepts ? TcpProgress::kDone : TcpProgress::kFailed;
}

void FakeTcpSystem::Await(std::span<ConnectAttempt> attempts, std::int32_t timeout_ms) {
    const std::uint64_t now = NowMs();
    std::uint64_t until = now + static_cast<std::uint64_t>(timeout_ms);
    for (const ConnectAttempt& attempt : attempts)
        until = std::min(until, DecidedAt(attempt.socket));
    EXPECT_FALSE(attempts.empty());
    EXPECT_LE(attempts.size(), kMaxConnectAttempts);
    tick_.Advance(until - now);
    for (ConnectAttempt& attempt : attempts)
        Decide(&attempt);
    if (NowMs() >= abort_at_) aborted_ = true;
}

}  // namespace tarvik::test

// ---------------------------------------------------------------- tcp_system.h

namespace tarvik {

using test::FakeTcpSystem;

const addrinfo* SystemNextAddress(const addrinfo& address) {
    return FakeTcpSystem::Current().Next(address);
}
SystemSocket SystemOpenSocket(const addrinfo& address) {
    return FakeTcpSystem::Current().OpenSocket(address);
}
void SystemClose(SystemSocket socket) { FakeTcpSystem::Current().Close(socket); }
TcpProgress SystemBeginConnect(SystemSocket socket, const addrinfo&) {
    return FakeTcpSystem::Current().Begin(socket);
}
void SystemAwaitConnects(std::span<ConnectAttempt> attempts, std::int32_t timeout_ms) {
    FakeTcpSystem::Current().Await(attempts, timeout_ms);
}
void SystemDetectDeadPeer(SystemSocket socket, std::int32_t, std::int32_t) {
    FakeTcpSystem::Current().Watch(socket);
}

}  // namespace tarvik
