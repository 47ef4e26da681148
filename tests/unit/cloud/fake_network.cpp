#include "unit/cloud/fake_network.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "transport/cloud/tcp_addresses.h"
#include "transport/cloud/tcp_socket.h"
#include "unit/test_support.h"

namespace tarvik::test {

Bytes WirePacket(std::uint32_t type, const Bytes& payload) {
    Bytes packet(MIN_PKT_SIZE + payload.size());
    StoreU32(packet.data(), type);
    StoreU32(packet.data() + 4, static_cast<std::uint32_t>(packet.size()));
    std::copy(payload.begin(), payload.end(), packet.begin() + MIN_PKT_SIZE);
    return packet;
}

// Never destroyed: a look-up that nobody waits for any more may outlive the tests.
FakeNetwork& FakeNetwork::Get() {
    static auto* const network = new FakeNetwork;
    return *network;
}

void FakeNetwork::Reset() {
    const std::lock_guard hold(lock_);
    incoming_.clear();
    sent_.clear();
    target_.clear();
    ended_ = false;
    receive_error_ = 0;
    aborted_ = false;
    reception_ = Reception::kAccept;
    resolve_error_ = 0;
    resolving_held_ = false;
    send_error_ = 0;
    refusals_ = 0;
    failing_step_.reset();
    connections_ = 0;
    peeks_ = 0;
}

void FakeNetwork::RefuseNext(std::uint32_t attempts) {
    const std::lock_guard hold(lock_);
    refusals_ = attempts;
}

void FakeNetwork::FailWebSocket(WebSocketStep step, std::uint32_t error, std::uint32_t times) {
    const std::lock_guard hold(lock_);
    failing_step_ = step;
    step_error_ = error;
    step_failures_ = times;
}

void FakeNetwork::FailSending(std::uint32_t error) {
    const std::lock_guard hold(lock_);
    send_error_ = error;
}

void FakeNetwork::Deliver(const Bytes& bytes, MessageKind kind) {
    const std::lock_guard hold(lock_);
    incoming_.push_back({kind, bytes});
    changed_.notify_all();
}

void FakeNetwork::HangUp() {
    const std::lock_guard hold(lock_);
    ended_ = true;
    changed_.notify_all();
}

void FakeNetwork::SetReceiveError(std::uint32_t error) {
    const std::lock_guard hold(lock_);
    receive_error_ = error;
    changed_.notify_all();
}

void FakeNetwork::Hold(bool* held, bool hold) {
    const std::lock_guard guard(lock_);
    *held = hold;
    changed_.notify_all();
}

void FakeNetwork::StayWhile(std::unique_lock<std::mutex>& hold, const bool& held) {
    ++holding_;
    changed_.wait(hold, [&held] { return !held; });
    --holding_;
}

bool FakeNetwork::EventuallyHolds() {
    return Eventually([&] {
        const std::lock_guard hold(lock_);
        return (sending_held_ || reading_held_) && holding_ > 0;
    });
}

std::vector<Bytes> FakeNetwork::Sent() {
    const std::lock_guard hold(lock_);
    return sent_;
}

std::size_t FakeNetwork::SentCount(std::uint32_t type) {
    const std::lock_guard hold(lock_);
    return static_cast<std::size_t>(
        std::count_if(sent_.begin(), sent_.end(), [type](const Bytes& packet) {
            if (LoadU32(packet.data()) == type) return true;
            return LoadU32(packet.data()) == kTypeCryp && LoadU32(packet.data() + 24) == type;
        }));
}

bool FakeNetwork::EventuallySends(std::uint32_t type, std::size_t count) {
    return Eventually([&] { return SentCount(type) >= count; });
}

std::string FakeNetwork::Target() {
    const std::lock_guard hold(lock_);
    return target_;
}

int FakeNetwork::Resolve(const std::string& target) {
    SetTarget(target);
    ++resolving_;
    while (resolving_held_)
        SleepMs(1);
    --resolving_;
    return resolve_error_;
}

void FakeNetwork::SetTarget(const std::string& target) {
    const std::lock_guard hold(lock_);
    target_ = target;
}

// A connection starts without anything left of the one before.
bool FakeNetwork::Connect(const std::atomic<bool>& abort) {
    std::unique_lock hold(lock_);
    ++connections_;
    while (reception_ == Reception::kNeverAnswer && !abort && !aborted_)
        changed_.wait_for(hold, std::chrono::milliseconds(5));
    if (reception_ != Reception::kAccept || abort) return false;
    if (refusals_ > 0) {
        --refusals_;
        return false;
    }
    incoming_.clear();
    ended_ = false;
    aborted_ = false;
    receive_error_ = 0;
    ++open_links_;
    return true;
}

void FakeNetwork::Abort() {
    const std::lock_guard hold(lock_);
    aborted_ = true;
    changed_.notify_all();
}

void FakeNetwork::Close() { --open_links_; }

bool FakeNetwork::WaitForBytes(std::int32_t timeout_ms) {
    std::unique_lock hold(lock_);
    return changed_.wait_for(hold, std::chrono::milliseconds(timeout_ms),
                             [this] { return !incoming_.empty() || ended_ || aborted_; });
}

bool FakeNetwork::HasEnded() {
    const std::lock_guard hold(lock_);
    return ended_;
}

int FakeNetwork::Peek(void* data, std::uint32_t size) {
    const std::lock_guard hold(lock_);
    ++peeks_;
    auto* const to = static_cast<std::uint8_t*>(data);
    std::size_t count = 0;
    for (const Message& message : incoming_) {
        const std::size_t part = std::min(size - count, message.bytes.size());
        std::copy_n(message.bytes.begin(), part, to + count);
        count += part;
    }
    return static_cast<int>(count);
}

int FakeNetwork::Read(void* data, std::uint32_t size) {
    std::unique_lock hold(lock_);
    auto* const to = static_cast<std::uint8_t*>(data);
    std::size_t count = 0;
    while (count < size && !incoming_.empty()) {
        Bytes& bytes = incoming_.front().bytes;
        const std::size_t part = std::min(size - count, bytes.size());
        std::copy_n(bytes.begin(), part, to + count);
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(part));
        count += part;
        if (bytes.empty()) incoming_.pop_front();
    }
    StayWhile(hold, reading_held_);
    return static_cast<int>(count);
}

std::uint32_t FakeNetwork::ReadMessage(void* data, std::uint32_t size, std::uint32_t* bytes,
                                       MessageKind* kind) {
    std::unique_lock hold(lock_);
    changed_.wait(
        hold, [this] { return !incoming_.empty() || ended_ || aborted_ || receive_error_ != 0; });
    if (aborted_) return kErrorOperationCancelled;
    if (receive_error_ != 0) return receive_error_;
    if (incoming_.empty()) return kErrorConnectionBroken;
    Message& message = incoming_.front();
    const auto count = std::min<std::size_t>(size, message.bytes.size());
    std::copy_n(message.bytes.begin(), count, static_cast<std::uint8_t*>(data));
    message.bytes.erase(message.bytes.begin(),
                        message.bytes.begin() + static_cast<std::ptrdiff_t>(count));
    *bytes = static_cast<std::uint32_t>(count);
    const bool in_parts = message.kind == MessageKind::kBinary && !message.bytes.empty();
    *kind = in_parts ? MessageKind::kBinaryFragment : message.kind;
    if (message.bytes.empty()) incoming_.pop_front();
    StayWhile(hold, reading_held_);
    return 0;
}

std::uint32_t FakeNetwork::Send(const void* data, std::uint32_t size) {
    std::unique_lock hold(lock_);
    StayWhile(hold, sending_held_);
    if (aborted_) return kErrorOperationCancelled;
    if (send_error_ != 0) return std::exchange(send_error_, 0);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    sent_.emplace_back(bytes, bytes + size);
    return 0;
}

std::uint32_t FakeNetwork::Step(WebSocketStep step) {
    const std::lock_guard hold(lock_);
    if (failing_step_ != step || step_failures_ == 0) return 0;
    --step_failures_;
    return step_error_;
}

}  // namespace tarvik::test

// ---------------------------------------------------------------- tcp_socket.h

namespace tarvik {

using test::FakeNetwork;

struct TcpSocket {};

namespace {

TcpSocket the_socket;
TcpAddresses the_addresses;

}  // namespace

void StartNetwork() { FakeNetwork::Get().UseNetwork(1); }
void EndNetwork() { FakeNetwork::Get().UseNetwork(-1); }

int ResolveTcp(const char* host, const char* port, TcpAddresses** addresses) {
    *addresses = &the_addresses;
    return FakeNetwork::Get().Resolve(std::string(host) + ":" + port);
}
void FreeTcpAddresses(TcpAddresses*) {}
TcpSocket* ConnectTcp(const TcpAddresses&, const std::atomic<bool>& abort) {
    return FakeNetwork::Get().Connect(abort) ? &the_socket : nullptr;
}
void AbortTcp(TcpSocket*) { FakeNetwork::Get().Abort(); }
void CloseTcp(TcpSocket*) { FakeNetwork::Get().Close(); }
TcpWait WaitForTcpData(TcpSocket*, std::int32_t timeout_ms) {
    if (!FakeNetwork::Get().WaitForBytes(timeout_ms)) return TcpWait::kTimeout;
    return FakeNetwork::Get().IsAborted() ? TcpWait::kFailed : TcpWait::kReadable;
}
bool TcpPeerEnded(const TcpSocket*) { return FakeNetwork::Get().HasEnded(); }
int PeekTcp(TcpSocket*, void* data, std::uint32_t size) {
    return FakeNetwork::Get().Peek(data, size);
}
int ReadTcp(TcpSocket*, void* data, std::uint32_t size) {
    return FakeNetwork::Get().Read(data, size);
}
bool SendTcp(TcpSocket*, const void* data, std::uint32_t size) {
    return FakeNetwork::Get().Send(data, size) == 0;
}

}  // namespace tarvik
