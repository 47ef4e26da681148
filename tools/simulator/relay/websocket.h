// The server side of a WebSocket (RFC 6455), without its socket: the upgrade, frames in both
// directions, and everything that a server must reject.

#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>

#include "protocol/wire.h"

namespace brennix {

class WebSocketServer {
public:
    struct Handlers {
        std::function<void(ByteSpan)> send;                   // bytes for the socket
        std::function<void(const std::string& path)> opened;  // the upgrade is answered
        // A complete binary message.
        std::function<void(ByteSpan)> message;
        // The last call: close the connection once everything is sent. `wrong` is empty if the
        // client closed it properly.
        std::function<void(const std::string& wrong)> finished;
    };

    explicit WebSocketServer(Handlers handlers) : handlers_(std::move(handlers)) {}

    void Feed(ByteSpan bytes);
    bool IsOpen() const { return state_ == State::kOpen; }

    // In frames of at most `frame` bytes; 0: in one frame.
    void SendBinary(ByteSpan payload, std::size_t frame = 0);
    void SendText(std::string_view text);
    void SendPing(ByteSpan payload);
    // Sends nothing afterwards; the client's close ends the connection.
    void SendClose(std::uint16_t code, std::string_view reason);
    // Answers the upgrade with this status instead. 0: stops doing so.
    void RefuseUpgrade(unsigned status) { refused_with_ = status; }

private:
    enum class State { kUpgrade, kOpen, kClosing, kFinished };

    struct Frame {
        std::uint8_t opcode;
        bool is_last;
        std::size_t head;  // bytes before the payload
        std::size_t size;  // of the payload
        std::array<std::uint8_t, 4> mask;
    };

    bool Upgrade();
    void AnswerUpgrade(const std::string& key, const std::string& path);
    void RejectUpgrade(const std::string& status, const std::string& fields,
                       const std::string& wrong);
    bool TakeFrame();
    // Empty: more bytes must come, or the client broke a rule and the connection is finished.
    std::optional<Frame> ReadFrameHead();
    void HandleFrame(const Frame& frame, Bytes payload);
    void HandleData(const Frame& frame, ByteSpan payload);
    void HandleClose(ByteSpan payload);
    void SendFrame(std::uint8_t first, ByteSpan payload);
    void Fail(std::uint16_t code, const std::string& wrong);
    void Finish(const std::string& wrong);

    Handlers handlers_;
    State state_ = State::kUpgrade;
    unsigned refused_with_ = 0;
    Bytes received_;
    Bytes message_;
    bool in_message_ = false;
};

}  // namespace brennix
