// The frames of a WebSocket from a relay, through the client on Boost.Beast. An input whose first
// byte is odd is sent as it is. Otherwise it is a list of frames: what it is, its length as two
// bytes, its bytes. Then the packets must be those in the bytes of all binary messages before the
// first frame that is no such part or breaks the protocol.

// The client starts with a connection that exists, which is not possible from outside.
#include "transport/cloud/websocket_beast.cpp"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/beast/websocket/detail/hybi13.hpp>

#include <sys/socket.h>

#include <cstdlib>
#include <span>
#include <vector>

#include "fuzz/cloud_stream/expected_packets.h"
#include "transport/cloud/websocket_receive.h"

using namespace tarvik;
using namespace tarvik::fuzz;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

// ---------------------------------------------------------------- frames

enum class Frame : std::uint8_t { kMessage, kFirst, kMiddle, kLast, kPing, kText, kClose, kPong };
constexpr std::uint8_t kOpcodes[] = {0x82, 0x02, 0x00, 0x80, 0x89, 0x81, 0x88, 0x8A};
constexpr std::size_t kControlLimit = 125;

bool IsControl(Frame frame) {
    return frame == Frame::kPing || frame == Frame::kPong || frame == Frame::kClose;
}

struct Sent {
    Bytes bytes;   // on the wire
    Bytes stream;  // of binary messages, as long as the protocol holds
};

void AppendFrame(Bytes* out, Frame frame, std::span<const std::uint8_t> payload) {
    out->push_back(kOpcodes[static_cast<std::size_t>(frame)]);
    if (payload.size() <= kControlLimit) {
        out->push_back(static_cast<std::uint8_t>(payload.size()));
    } else {
        out->push_back(126);
        out->push_back(static_cast<std::uint8_t>(payload.size() >> 8));
        out->push_back(static_cast<std::uint8_t>(payload.size()));
    }
    out->insert(out->end(), payload.begin(), payload.end());
}

Sent Frames(std::span<const std::uint8_t> input) {
    constexpr std::size_t kHead = 3;
    Sent sent;
    bool holds = true;
    bool in_message = false;
    while (input.size() >= kHead) {
        const auto frame = static_cast<Frame>(input[0] % std::size(kOpcodes));
        std::size_t size = input[1] + std::size_t{256} * input[2];
        if (IsControl(frame)) size %= kControlLimit + 1;
        input = input.subspan(kHead);
        const auto payload = input.first(std::min(size, input.size()));
        input = input.subspan(payload.size());
        AppendFrame(&sent.bytes, frame, payload);
        if (frame == Frame::kPing || frame == Frame::kPong) continue;
        const bool continues = frame == Frame::kMiddle || frame == Frame::kLast;
        holds = holds && frame != Frame::kText && frame != Frame::kClose && continues == in_message;
        in_message = frame == Frame::kFirst || frame == Frame::kMiddle;
        if (holds) sent.stream.insert(sent.stream.end(), payload.begin(), payload.end());
    }
    return sent;
}

// ---------------------------------------------------------------- the relay

// The other end of the client's connection, on the client's own loop.
class Relay {
public:
    Relay(WebSocketClient* client, const Bytes& bytes) : bytes_(bytes), socket_(client->io) {
        int ends[2] = {-1, -1};
        Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
        client->connecting.assign(tcp::v4(), ends[0]);
        socket_.assign(ends[1]);
        asio::async_read_until(socket_, asio::dynamic_buffer(request_), "\r\n\r\n",
                               [this](const Error& error, std::size_t) {
                                   Require(!error);
                                   Answer();
                               });
    }

private:
    // The upgrade, everything else, and the end.
    void Answer() {
        Send(
            "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
            "Sec-WebSocket-Accept: " +
            AcceptText() + "\r\n\r\n");
        Send({bytes_.begin(), bytes_.end()});
        ::shutdown(socket_.native_handle(), SHUT_WR);
    }
    std::string AcceptText() const {
        constexpr std::string_view kName = "Sec-WebSocket-Key: ";
        const std::size_t begin = request_.find(kName) + kName.size();
        websocket::detail::sec_ws_accept_type accept;
        websocket::detail::make_sec_ws_accept(
            accept, request_.substr(begin, request_.find('\r', begin) - begin));
        return {accept.data(), accept.size()};
    }
    void Send(const std::string& text) {
        Error error;
        asio::write(socket_, asio::buffer(text), error);
        Require(!error);
    }

    const Bytes& bytes_;
    asio::posix::stream_descriptor socket_;
    std::string request_;
};

// ---------------------------------------------------------------- the client

std::uint32_t Receive(void* client, void* data, std::uint32_t size, std::uint32_t* bytes,
                      MessageKind* kind) {
    const std::uint32_t error =
        ReceiveFromWebSocket(static_cast<WebSocketClient*>(client), data, size, bytes, kind);
    if (error == 0) Require(*bytes <= size);
    return error;
}

std::vector<Bytes> PacketsFrom(WebSocketClient* client) {
    std::vector<Bytes> packets;
    for (;;) {
        PacketPtr packet;
        if (!ReceiveWebSocketPacket({Receive, client}, &packet)) return packets;
        if (packet == nullptr) continue;
        packets.emplace_back(packet->Bytes(), packet->Bytes() + packet->length);
    }
}

std::vector<Bytes> Received(const Bytes& bytes) {
    WebSocketClient* const client = CreateWebSocketClient();
    Require(client != nullptr);
    client->server = "relay.test";
    client->endpoint = "/";
    client->port = "1";
    std::vector<Bytes> packets;
    {
        const Relay relay(client, bytes);
        client->plain_stream.emplace(std::move(client->connecting));
        Require(ReceiveResponse(client) == 0);
        Require(CompleteUpgrade(client) == 0);
        packets = PacketsFrom(client);
        CloseAll(client, nullptr);
    }
    CloseWebSocket(client, nullptr);
    return packets;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::span<const std::uint8_t> input(data + 1, size - 1);
    if (data[0] % 2 == 1) {
        Received({input.begin(), input.end()});
        return 0;
    }
    const Sent sent = Frames(input);
    Require(Received(sent.bytes) == PacketsIn(sent.stream));
    return 0;
}
