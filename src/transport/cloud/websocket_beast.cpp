// The WebSocket client on Boost.Beast. Its streams are not for two threads at once, so only one
// thread runs `io` at any time and does the work of both: the connection thread while it connects,
// the receiving thread afterwards. A sender hands its packet over and sleeps until it is sent.
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "link/packet.h"
#include "platform/lock.h"
#include "platform/posix/standard_descriptors.h"
#include "support/memory.h"
#include "transport/cloud/cloud_limits.h"
#include "transport/cloud/tcp_connect.h"
#include "transport/cloud/tcp_lookup.h"
#include "transport/cloud/tls_library.h"
#include "transport/cloud/websocket_client.h"

namespace tarvik {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
namespace ssl = asio::ssl;
using asio::ip::tcp;
using Error = boost::system::error_code;

namespace {

constexpr std::size_t kTextCapacity = 256;  // of Windows's texts
constexpr char kDefaultProxyPort[] = "80";
constexpr std::size_t kWriteBufferSize = 8192;  // a packet is sent in one piece
constexpr std::size_t kHandles = 4;

std::chrono::seconds ConnectLimit() {
    return std::chrono::seconds(GetCloudLimits().websocket_connect_s);
}
std::chrono::seconds AnswerLimit() {
    return std::chrono::seconds(GetCloudLimits().websocket_answer_s);
}

using PlainStream = websocket::stream<tcp::socket>;
using SecureStream = websocket::stream<ssl::stream<tcp::socket>>;

// Where OpenSSL has no memory left, not even to note an error, Boost takes its null pointers for
// objects. So the context is created here, and an error is there before a stream is created.
ssl::context CreateTlsContext() {
    ssl::context context(CreateTlsClientContext());
    context.set_options(ssl::context::no_compression);
    return context;
}

class ErrorInAdvance {
public:
    ErrorInAdvance() {
        ERR_raise(ERR_LIB_USER, ERR_R_MALLOC_FAILURE);
        if (::ERR_peek_error() == 0) throw std::bad_alloc();
    }
    ~ErrorInAdvance() { ::ERR_clear_error(); }
    ErrorInAdvance(const ErrorInAdvance&) = delete;
    ErrorInAdvance& operator=(const ErrorInAdvance&) = delete;
};

}  // namespace

struct WebSocketClient {
    std::string server, endpoint, proxy, user_agent;
    std::string port;
    bool use_proxy = false;
    bool secure = false;
    bool check_certificate = true;

    // Which handles would be open on Windows, by WebSocketHandle.
    std::array<std::atomic<bool>, kHandles> open{};

    asio::io_context io{1};
    // A stream of Beast that cannot create its timer remains in a list of `io`, destroyed. With the
    // timers' service there already, creating one needs no memory.
    asio::steady_timer timer{io};
    ssl::context tls = CreateTlsContext();
    tcp::socket connecting{io};  // until the stream takes it over
    std::optional<PlainStream> plain_stream;
    std::optional<SecureStream> secure_stream;
    std::uint32_t upgrade_error = 0;

    // The receiver's: the part of one message that has been read ahead, and how much of it is
    // taken.
    std::array<std::uint8_t, MAX_PKT_SIZE> arrived;
    std::uint32_t arrived_size = 0;
    std::uint32_t taken = 0;
    MessageKind arrived_kind = MessageKind::kBinary;
    std::chrono::steady_clock::time_point next_pong;
    bool pong_leaving = false;

    std::atomic<bool> aborted{false};
    OsLock send_lock;  // guards all below
    OsCondition changed;
    bool receiving = false;  // the receiver runs `io`
    bool broken = false;     // it never will again
    bool send_done = false;
    Error send_result;
};

namespace {

// Calls `use` with the current stream, if there is one.
template <typename Use>
void WithStream(WebSocketClient* client, Use use) {
    if (client->secure_stream) {
        use(*client->secure_stream);
    } else if (client->plain_stream) {
        use(*client->plain_stream);
    }
}

void CloseSockets(WebSocketClient* client) {
    Error ignored;
    client->connecting.close(ignored);
    WithStream(client, [&](auto& stream) { beast::get_lowest_layer(stream).close(ignored); });
}

// When a thread that runs `io` next looks for an abort, which may have had no memory to post one.
std::chrono::steady_clock::time_point NextLook() {
    return std::chrono::steady_clock::now() +
           std::chrono::milliseconds(GetCloudLimits().connect_poll_ms);
}

// Runs one operation to its end or, if it takes too long, to its failure. `start` gets the handler
// that completes it.
template <typename Start>
Error RunUntil(WebSocketClient* client, std::chrono::steady_clock::time_point deadline,
               Start start) {
    bool done = false;
    Error result;
    start([&](const Error& error, auto&&...) {
        result = error;
        done = true;
    });
    client->io.restart();
    bool in_time = true;
    while (!done) {  // NOLINT(bugprone-infinite-loop): the handler sets it
        client->io.run_one_until(in_time ? std::min(deadline, NextLook()) : NextLook());
        in_time = in_time && (done || std::chrono::steady_clock::now() < deadline);
        if (!in_time || client->aborted) CloseSockets(client);
    }
    return in_time ? result : Error(asio::error::timed_out);
}

template <typename Start>
Error RunWithin(WebSocketClient* client, std::chrono::seconds limit, Start start) {
    if (client->aborted) return asio::error::operation_aborted;
    return RunUntil(client, std::chrono::steady_clock::now() + limit, start);
}

std::uint32_t CodeOf(const WebSocketClient& client, const Error& error, std::uint32_t otherwise) {
    if (!error) return 0;
    if (client.aborted) return kErrorOperationCancelled;
    return error == asio::error::timed_out ? kErrorTimeout : otherwise;
}

// No exception leaves this file.
template <typename Body>
std::uint32_t Guarded(Body body) {
    try {
        return body();
    } catch (const std::exception&) {
        return kErrorConnectionBroken;
    }
}

std::atomic<bool>& IsOpen(WebSocketClient* client, WebSocketHandle handle) {
    return client->open.at(static_cast<std::size_t>(handle));
}

// ---------------------------------------------------------------- connecting

struct HostAndPort {
    std::string host, port;
};

// "host", "host:port", each with or without "http://".
HostAndPort ProxyTarget(const WebSocketClient& client) {
    std::string_view text(client.proxy);
    constexpr std::string_view kScheme = "http://";
    if (text.starts_with(kScheme)) text.remove_prefix(kScheme.size());
    text = text.substr(0, text.find('/'));
    const std::size_t colon = text.rfind(':');
    if (colon == text.npos) return {std::string(text), kDefaultProxyPort};
    return {std::string(text.substr(0, colon)), std::string(text.substr(colon + 1))};
}

// Closes the socket in the end unless the client has taken it over.
class NewSocket {
public:
    explicit NewSocket(SystemSocket socket) : socket_(socket) {}
    ~NewSocket() {
        if (socket_ != kNoSocket) SystemClose(socket_);
    }
    NewSocket(const NewSocket&) = delete;
    NewSocket& operator=(const NewSocket&) = delete;

    std::uint32_t HandOver(WebSocketClient* client, int family) {
        const tcp protocol = family == AF_INET6 ? tcp::v6() : tcp::v4();
        Error error;
        client->connecting.assign(protocol, static_cast<int>(socket_), error);
        if (error) return kErrorCannotConnect;
        socket_ = kNoSocket;
        return 0;
    }

private:
    SystemSocket socket_;
};

std::uint32_t ConnectToAny(WebSocketClient* client, const TcpAddresses& addresses) {
    const auto limit =
        static_cast<std::uint64_t>(std::chrono::milliseconds(ConnectLimit()).count());
    const TcpConnection connected = ConnectToFirst(addresses, client->aborted, limit);
    NewSocket socket(connected.socket);
    if (client->aborted) return kErrorOperationCancelled;
    if (connected.timed_out) return kErrorTimeout;
    if (connected.socket == kNoSocket) return kErrorCannotConnect;
    return Guarded([&] { return socket.HandOver(client, connected.address->ai_family); });
}

std::uint32_t OpenConnection(WebSocketClient* client) {
    const HostAndPort target =
        client->use_proxy ? ProxyTarget(*client) : HostAndPort{client->server, client->port};
    TcpAddresses* addresses = nullptr;
    if (LookUpTcp(target.host.c_str(), target.port.c_str(), client->aborted, &addresses) != 0) {
        return client->aborted ? kErrorOperationCancelled : kErrorNameNotResolved;
    }
    const std::uint32_t error = ConnectToAny(client, *addresses);
    FreeTcpAddresses(addresses);
    return error;
}

std::string Authority(const WebSocketClient& client) { return client.server + ":" + client.port; }

// Asks the proxy for a tunnel to the server.
std::uint32_t OpenTunnel(WebSocketClient* client) {
    http::request<http::empty_body> request(http::verb::connect, Authority(*client), 11);
    request.set(http::field::host, Authority(*client));
    request.set(http::field::user_agent, client->user_agent);
    const Error asked = RunWithin(client, AnswerLimit(), [&](auto done) {
        http::async_write(client->connecting, request, done);
    });
    if (asked) return CodeOf(*client, asked, kErrorConnectionBroken);
    // The proxy sends nothing after its answer before we have sent something ourselves.
    beast::flat_buffer buffer;
    http::response_parser<http::empty_body> answer;
    answer.skip(true);
    const Error answered = RunWithin(client, AnswerLimit(), [&](auto done) {
        http::async_read_header(client->connecting, buffer, answer, done);
    });
    if (answered) return CodeOf(*client, answered, kErrorConnectionBroken);
    const bool opened =
        http::to_status_class(answer.get().result()) == http::status_class::successful;
    return opened ? 0 : kErrorCannotConnect;
}

bool PrepareTls(WebSocketClient* client, ssl::stream<tcp::socket>* stream) {
    Error error;
    // For names of servers only: the extension has no addresses.
    Error no_address;
    asio::ip::make_address(client->server, no_address);
    if (no_address) SSL_set_tlsext_host_name(stream->native_handle(), client->server.c_str());
    if (!client->check_certificate) {
        stream->set_verify_mode(ssl::verify_none, error);
        return !error;
    }
    if (!TrustSystemIssuers(client->tls.native_handle())) return false;
    stream->set_verify_mode(ssl::verify_peer, error);
    if (!error) stream->set_verify_callback(ssl::host_name_verification(client->server), error);
    return !error;
}

std::uint32_t OpenTls(WebSocketClient* client) {
    {
        const ErrorInAdvance for_boost;
        client->secure_stream.emplace(std::move(client->connecting), client->tls);
    }
    auto& stream = client->secure_stream->next_layer();
    if (!PrepareTls(client, &stream)) return kErrorSecureFailure;
    const Error greeted = RunWithin(client, AnswerLimit(), [&](auto done) {
        stream.async_handshake(ssl::stream_base::client, done);
    });
    return CodeOf(*client, greeted, kErrorSecureFailure);
}

std::uint32_t SendRequest(WebSocketClient* client) {
    return Guarded([client] {
        std::uint32_t error = OpenConnection(client);
        if (error == 0 && client->use_proxy) error = OpenTunnel(client);
        if (error != 0) return error;
        if (client->secure) return OpenTls(client);
        client->plain_stream.emplace(std::move(client->connecting));
        return std::uint32_t{0};
    });
}

template <typename Stream>
void Configure(Stream* stream, const std::string& user_agent) {
    stream->set_option(
        websocket::stream_base::decorator([user_agent](websocket::request_type& request) {
            request.set(http::field::user_agent, user_agent);
        }));
    stream->binary(true);
    stream->auto_fragment(false);
    stream->write_buffer_bytes(kWriteBufferSize);
    websocket::stream_base::timeout limits{};
    limits.handshake_timeout = AnswerLimit();  // of the closing, too
    limits.idle_timeout = websocket::stream_base::none();
    limits.keep_alive_pings = false;
    stream->set_option(limits);
    stream->read_message_max(0);  // any size: messages are cut into packets, not kept
}

// An answer that refuses the upgrade is still an answer: it is the next step that fails.
bool IsRefusal(const Error& error) {
    return error.category() == Error(websocket::error::upgrade_declined).category() ||
           error.category() == Error(http::error::bad_version).category();
}

std::uint32_t ReceiveResponse(WebSocketClient* client) {
    return Guarded([client] {
        Error answered;
        WithStream(client, [&](auto& stream) {
            Configure(&stream, client->user_agent);
            answered = RunWithin(client, AnswerLimit(), [&](auto done) {
                stream.async_handshake(Authority(*client), client->endpoint, done);
            });
        });
        if (answered && !client->aborted && IsRefusal(answered)) {
            client->upgrade_error = kErrorInvalidResponse;
            return std::uint32_t{0};
        }
        return CodeOf(*client, answered, kErrorConnectionBroken);
    });
}

void SchedulePong(WebSocketClient* client) {
    client->next_pong = std::chrono::steady_clock::now() +
                        std::chrono::milliseconds(GetCloudLimits().websocket_pong_ms);
}

std::uint32_t CompleteUpgrade(WebSocketClient* client) {
    if (client->upgrade_error != 0) return client->upgrade_error;
    SchedulePong(client);
    IsOpen(client, WebSocketHandle::kRequest) = false;
    IsOpen(client, WebSocketHandle::kWebSocket) = true;
    return 0;
}

std::uint32_t CheckText(const char* text) {
    return std::strlen(text) < kTextCapacity ? 0 : kErrorInvalidParameter;
}

std::uint32_t OpenSession(WebSocketClient* client, const WebSocketTarget& target) {
    return Guarded([&] {
        client->server = target.server;
        client->endpoint = target.endpoint;
        client->proxy = target.proxy;
        client->user_agent = target.user_agent;
        client->port = std::to_string(static_cast<std::uint16_t>(target.port));
        IsOpen(client, WebSocketHandle::kSession) = true;
        return std::uint32_t{0};
    });
}

std::uint32_t Open(WebSocketClient* client, WebSocketHandle handle) {
    IsOpen(client, handle) = true;
    return 0;
}

std::uint32_t Nothing() { return 0; }

bool TakeSteps(WebSocketClient* client, const WebSocketTarget& target,
               const WebSocketSteps& steps) {
    using Step = WebSocketStep;
    using Handle = WebSocketHandle;
    client->use_proxy = target.use_proxy;
    client->secure = target.secure;
    client->check_certificate = target.check_certificate;
    return steps.Take(Step::kServerText, [&] { return CheckText(target.server); }) &&
           steps.Take(Step::kEndpointText, [&] { return CheckText(target.endpoint); }) &&
           steps.Take(Step::kProxyText, [&] { return CheckText(target.proxy); }) &&
           steps.Take(Step::kOpen, [&] { return OpenSession(client, target); }) &&
           (!target.use_proxy || steps.Take(Step::kProxy, Nothing)) &&
           steps.Take(Step::kConnect, [&] { return Open(client, Handle::kConnection); }) &&
           steps.Take(Step::kOpenRequest, [&] { return Open(client, Handle::kRequest); }) &&
           (target.check_certificate || steps.Take(Step::kCertificates, Nothing)) &&
           steps.Take(Step::kUpgradeOption, Nothing) &&
           steps.Take(Step::kSend, [&] { return SendRequest(client); }) &&
           steps.Take(Step::kReceive, [&] { return ReceiveResponse(client); }) &&
           steps.Take(Step::kComplete, [&] { return CompleteUpgrade(client); });
}

void CloseAll(WebSocketClient* client, void (*closed)(WebSocketHandle)) {
    CloseSockets(client);
    for (std::size_t i = 0; i < kHandles; ++i) {
        const auto handle = static_cast<WebSocketHandle>(i);
        if (IsOpen(client, handle).exchange(false) && closed != nullptr) closed(handle);
    }
}

// ---------------------------------------------------------------- messages

// False: aborted; `io` must not run any more.
bool BeginReceiving(WebSocketClient* client) {
    const LockGuard hold(client->send_lock);
    client->receiving = !client->aborted;
    return client->receiving;
}

// Wakes a sender only if it need not wait any more.
void EndReceiving(WebSocketClient* client, bool broken) {
    const LockGuard hold(client->send_lock);
    client->receiving = false;
    if (broken) client->broken = true;
    if (broken || client->aborted) client->changed.WakeAll();
}

// Keeps the connection open in what is between the two ends, as Windows's service does. A pong that
// could not leave, or for which there is no memory, is left out; whether the connection has failed
// is for transfers to find out.
void SendPongIfDue(WebSocketClient* client) {
    if (std::chrono::steady_clock::now() < client->next_pong) return;
    SchedulePong(client);
    if (client->pong_leaving) return;
    Guarded([client] {
        WithStream(client, [client](auto& stream) {
            stream.async_pong({}, [client](const Error&) { client->pong_leaving = false; });
            client->pong_leaving = true;
        });
        return std::uint32_t{0};
    });
}

template <typename Stream>
Error ReadSome(WebSocketClient* client, Stream* stream, asio::mutable_buffer buffer,
               std::uint32_t* bytes) {
    bool done = false;
    Error result;
    stream->async_read_some(buffer, [&](const Error& error, std::size_t count) {
        result = error;
        *bytes = static_cast<std::uint32_t>(count);
        done = true;
    });
    client->io.restart();
    while (!done) {  // NOLINT(bugprone-infinite-loop): the handler sets it
        client->io.run_one_until(NextLook());
        if (client->aborted) CloseSockets(client);
        SendPongIfDue(client);
    }
    return result;
}

template <typename Stream>
MessageKind KindOf(const Stream& stream) {
    if (stream.got_text()) {
        return stream.is_message_done() ? MessageKind::kText : MessageKind::kTextFragment;
    }
    return stream.is_message_done() ? MessageKind::kBinary : MessageKind::kBinaryFragment;
}

std::uint32_t ReadAhead(WebSocketClient* client) {
    client->taken = 0;
    client->arrived_size = 0;
    Error result;
    WithStream(client, [client, &result](auto& stream) {
        result = ReadSome(client, &stream, asio::buffer(client->arrived), &client->arrived_size);
        client->arrived_kind = KindOf(stream);
    });
    if (result != websocket::error::closed) return CodeOf(*client, result, kErrorConnectionBroken);
    client->arrived_kind = MessageKind::kClose;
    return 0;
}

MessageKind PartOf(MessageKind whole) {
    switch (whole) {
        case MessageKind::kBinary:
        case MessageKind::kBinaryFragment:
            return MessageKind::kBinaryFragment;
        case MessageKind::kText:
        case MessageKind::kTextFragment:
            return MessageKind::kTextFragment;
        case MessageKind::kClose:
            return MessageKind::kClose;
    }
    return whole;
}

void TakeArrived(WebSocketClient* client, void* data, std::uint32_t size, std::uint32_t* bytes,
                 MessageKind* kind) {
    const std::uint32_t left = client->arrived_size - client->taken;
    *bytes = std::min(size, left);
    *kind = *bytes == left ? client->arrived_kind : PartOf(client->arrived_kind);
    std::memcpy(data, client->arrived.data() + client->taken, *bytes);
    client->taken += *bytes;
}

// On the receiving thread.
void StartSending(WebSocketClient* client, asio::const_buffer packet) {
    WithStream(client, [&](auto& stream) {
        stream.async_write(packet, [client](const Error& error, std::size_t) {
            {
                const LockGuard hold(client->send_lock);
                client->send_result = error;
                client->send_done = true;
            }
            client->changed.WakeAll();
        });
    });
}

// Returns once the packet is no longer used: it has been sent, or the receiving thread does not run
// `io` again.
void AwaitSent(WebSocketClient* client) {
    for (;;) {
        if (client->send_done || client->broken) return;
        if (client->aborted && !client->receiving) return;
        client->changed.Wait(client->send_lock, -1);
    }
}

}  // namespace

WebSocketClient* CreateWebSocketClient() {
    try {
        const StandardDescriptorsTaken standard;  // Asio opens what it waits with
        return NewTracked<WebSocketClient>();
    } catch (const std::exception&) {
        return nullptr;
    }
}

bool ConnectWebSocket(WebSocketClient* client, const WebSocketTarget& target,
                      const WebSocketSteps& steps) {
    const bool connected = TakeSteps(client, target, steps);
    if (!connected) CloseAll(client, nullptr);
    return connected;
}

std::uint32_t ReceiveFromWebSocket(WebSocketClient* client, void* data, std::uint32_t size,
                                   std::uint32_t* bytes, MessageKind* kind) {
    if (client->aborted) return kErrorOperationCancelled;
    if (client->taken == client->arrived_size) {
        if (!BeginReceiving(client)) return kErrorOperationCancelled;
        const std::uint32_t code = Guarded([client] { return ReadAhead(client); });
        EndReceiving(client, code != 0 || client->arrived_kind == MessageKind::kClose);
        if (code != 0) return code;
    }
    TakeArrived(client, data, size, bytes, kind);
    return 0;
}

std::uint32_t SendToWebSocket(WebSocketClient* client, const void* data, std::uint32_t size) {
    return Guarded([&] {
        {
            const LockGuard hold(client->send_lock);
            client->send_done = false;
        }
        asio::post(client->io,
                   [client, packet = asio::buffer(data, size)] { StartSending(client, packet); });
        const LockGuard hold(client->send_lock);
        AwaitSent(client);
        if (client->send_done && !client->send_result) return std::uint32_t{0};
        return client->aborted ? kErrorOperationCancelled : kErrorConnectionBroken;
    });
}

bool AbortWebSocket(WebSocketClient* client) {
    {
        const LockGuard hold(client->send_lock);
        client->aborted = true;
        client->changed.WakeAll();
    }
    Guarded([client] {
        asio::post(client->io, [client] { CloseSockets(client); });
        return std::uint32_t{0};
    });
    return IsOpen(client, WebSocketHandle::kWebSocket).exchange(false);
}

void CloseWebSocket(WebSocketClient* client, void (*closed)(WebSocketHandle)) {
    CloseAll(client, closed);
    DeleteTracked(client);
}

}  // namespace tarvik
