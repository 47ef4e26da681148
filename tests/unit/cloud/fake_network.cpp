#include "unit/cloud/fake_network.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "transport/cloud/secure_channel.h"
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

Bytes SealedPacket(const Bytes& packet) {
    Bytes payload(16);
    payload.insert(payload.end(), packet.begin(), packet.end());
    return WirePacket(kTypeCryp, payload);
}

// Never destroyed: a look-up that was left to itself may outlive the tests.
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
    failing_step_ = WebSocketStep::kNone;
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

bool FakeNetwork::EventuallyIdle() {
    return Eventually([&] {
        const std::lock_guard hold(lock_);
        return incoming_.empty();
    });
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

// A connection begins with nothing of the one before.
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

void FakeChannel::EndSession() { CloudSecClearSession(); }

void FakeChannel::Reset() {
    identity_failures = 0;
    handshake_failures = 0;
    identify_failures = 0;
    status = 0;
    clears = 0;
}

}  // namespace tarvik::test

// ---------------------------------------------------------------- tcp_socket.h

namespace tarvik {

using test::FakeNetwork;
using test::WebSocketStep;

struct TcpSocket {};
struct TcpAddresses {};
static TcpSocket the_socket;
static TcpAddresses the_addresses;

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

// ---------------------------------------------------------------- websocket_client.h

struct WebSocketClient {
    std::string server, endpoint;
    std::uint32_t port = 0;
    std::atomic<bool> aborted{false};
    std::atomic<bool> linked{false};  // to the relay
    std::atomic<bool> session{false}, connection{false}, request{false}, web_socket{false};
};

static std::uint32_t Take(WebSocketStep step) { return FakeNetwork::Get().Step(step); }
static std::uint32_t Take(WebSocketStep step, std::atomic<bool>* handle) {
    const std::uint32_t error = Take(step);
    *handle = error == 0;
    return error;
}

WebSocketClient* CreateWebSocketClient() { return new WebSocketClient; }
void DestroyWebSocketClient(WebSocketClient* client) { delete client; }
bool SetWebSocketServer(WebSocketClient* client, const char* server) {
    client->server = server;
    return Take(WebSocketStep::kServer) == 0;
}
bool SetWebSocketEndpoint(WebSocketClient* client, const char* endpoint) {
    client->endpoint = endpoint;
    return Take(WebSocketStep::kEndpoint) == 0;
}
bool SetWebSocketProxyAddress(WebSocketClient*, const char*) {
    return Take(WebSocketStep::kProxyAddress) == 0;
}
std::uint32_t OpenWebSocketSession(WebSocketClient* client, const char*) {
    return Take(WebSocketStep::kOpen, &client->session);
}
std::uint32_t UseWebSocketProxy(WebSocketClient*) { return Take(WebSocketStep::kProxy); }
std::uint32_t ConnectWebSocketServer(WebSocketClient* client, std::uint32_t port) {
    client->port = port;
    return Take(WebSocketStep::kConnect, &client->connection);
}
std::uint32_t OpenWebSocketRequest(WebSocketClient* client, bool) {
    return Take(WebSocketStep::kOpenRequest, &client->request);
}
std::uint32_t IgnoreCertificateFaults(WebSocketClient*) {
    return Take(WebSocketStep::kCertificates);
}
std::uint32_t RequestWebSocketUpgrade(WebSocketClient*) {
    return Take(WebSocketStep::kUpgradeOption);
}
std::uint32_t SendWebSocketRequest(WebSocketClient* client) {
    FakeNetwork& network = FakeNetwork::Get();
    network.SetTarget(client->server + ":" + std::to_string(client->port) + client->endpoint);
    const std::uint32_t error = Take(WebSocketStep::kSend);
    if (error != 0) return error;
    client->linked = network.Connect(client->aborted);
    if (client->linked) return 0;
    return client->aborted ? kErrorOperationCancelled : kErrorConnectionBroken;
}
std::uint32_t ReceiveWebSocketResponse(WebSocketClient*) { return Take(WebSocketStep::kReceive); }
std::uint32_t CompleteWebSocketUpgrade(WebSocketClient* client) {
    const std::uint32_t error = Take(WebSocketStep::kComplete, &client->web_socket);
    client->request = error != 0;
    return error;
}
std::uint32_t ReceiveFromWebSocket(WebSocketClient*, void* data, std::uint32_t size,
                                   std::uint32_t* bytes, MessageKind* kind) {
    return FakeNetwork::Get().ReadMessage(data, size, bytes, kind);
}
std::uint32_t SendToWebSocket(WebSocketClient*, const void* data, std::uint32_t size) {
    return FakeNetwork::Get().Send(data, size);
}
bool AbortWebSocket(WebSocketClient* client) {
    client->aborted = true;
    FakeNetwork::Get().Abort();
    return CloseWebSocket(client);
}
bool CloseWebSocketRequest(WebSocketClient* client) { return client->request.exchange(false); }
bool CloseWebSocket(WebSocketClient* client) { return client->web_socket.exchange(false); }
bool CloseWebSocketConnection(WebSocketClient* client) {
    if (client->linked.exchange(false)) FakeNetwork::Get().Close();
    return client->connection.exchange(false);
}
bool CloseWebSocketSession(WebSocketClient* client) { return client->session.exchange(false); }

// ---------------------------------------------------------------- secure_channel.h

using test::FakeChannel;

struct CloudSecSession {
    std::atomic<bool> established{false};
};
static CloudSecSession session;
CloudSecSession& cloud_session = session;

static void SendBare(DeviceQueues* queues, std::uint32_t type) {
    PacketPtr packet = MakePacket(type, MIN_PKT_SIZE);
    EnqueueTransmitPacket(queues, packet);
}

// The connection thread's.
static bool Works(std::atomic<std::uint32_t>* failures) {
    if (*failures == 0) return true;
    --*failures;
    return false;
}

bool CloudSecLoadIdentity() { return Works(&FakeChannel::identity_failures); }
bool CloudSecHandshake(DeviceQueues* queues, const std::atomic<bool>* abort) {
    const std::size_t before = FakeNetwork::Get().SentCount(kTypeNhs1);
    SendBare(queues, kTypeNhs1);
    if (!Works(&FakeChannel::handshake_failures)) return false;
    const auto is_sent = [before] { return FakeNetwork::Get().SentCount(kTypeNhs1) > before; };
    // A stop ends the transmit thread, which then sends nothing any more.
    test::Eventually([&] { return is_sent() || (abort != nullptr && *abort); });
    if (!is_sent()) return false;
    session.established = true;
    return true;
}
bool CloudSecIdentify(DeviceQueues* queues, std::uint32_t* status, const std::atomic<bool>*) {
    SendBare(queues, kTypeDevi);
    *status = FakeChannel::status;
    return Works(&FakeChannel::identify_failures);
}
bool CloudSecEstablished() { return session.established; }
void CloudSecClearSession() {
    session.established = false;
    ++FakeChannel::clears;
}
PacketPtr CloudSecSeal(PacketPtr packet) {
    if (!session.established || packet->type == kTypeNhs1) return packet;
    PacketPtr sealed = MakePacket(kTypeCryp, packet->length + 24);
    std::memcpy(sealed->Bytes() + 24, packet->Bytes(), packet->length);
    return sealed;
}
bool CloudSecOpen(CloudSecSession*, PacketPtr& packet) {
    if (packet->length < 32 || packet->U32(28) != packet->length - 24) return false;
    PacketPtr inner = MakePacket(packet->U32(24), packet->length - 24);
    std::memcpy(inner->Bytes(), packet->Bytes() + 24, inner->length);
    packet = std::move(inner);
    return true;
}

}  // namespace tarvik
