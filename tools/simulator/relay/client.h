// One connection of a library to the relay: its carrier, its secure channel, the dongle that it
// addressed, and the faults on the way to it.

#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "process/event_loop.h"
#include "protocol/fragments.h"
#include "protocol/open_pings.h"
#include "record/record.h"
#include "relay/faults.h"
#include "relay/secure_channel.h"
#include "relay/settings.h"
#include "relay/websocket.h"
#include "sockets/stream_socket.h"

namespace brennix {

class Client {
public:
    // What a client needs from the relay.
    class Host {
    public:
        virtual EventLoop& Loop() = 0;
        virtual RelaySettings& Settings() = 0;
        virtual FaultScript& Faults() = 0;
        virtual Record& Log() = 0;
        virtual void Say(std::size_t client, const std::string& text) = 0;
        virtual void SendLogins(Client* client) = 0;
        virtual std::optional<std::size_t> FindDongle(ByteSpan mac) = 0;
        // False: the dongle is gone.
        virtual bool ToDongle(std::size_t dongle, std::size_t client, ByteSpan packet) = 0;
        virtual void Gone(std::size_t client) = 0;  // must not delete the client at once

    protected:
        ~Host() = default;
    };

    // `tls` null: none. Takes over `fd`.
    Client(Host* host, std::size_t number, Carrier carrier, int fd, SSL_CTX* tls);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Start();  // applies the faults of new connections

    std::size_t Number() const { return number_; }
    Carrier Kind() const { return carrier_; }
    const std::string& Peer() const { return peer_; }
    const std::string& DeviceId() const { return device_id_; }  // empty before DEVI
    const std::string& User() const { return user_; }           // empty before LOGN
    std::uint32_t Status() const { return status_; }
    bool IsIdentified() const { return !device_id_.empty(); }
    std::optional<std::size_t> Dongle() const { return dongle_; }
    std::uint64_t Violations() const { return violations_; }
    const std::string& LastViolation() const { return last_violation_; }
    void ClearViolations() {
        violations_ = 0;
        last_violation_.clear();
    }

    void SendPacket(ByteSpan packet, bool sealed = true);  // sealed once the channel exists
    void SendPing(ByteSpan payload);
    void SendBytes(ByteSpan bytes);  // into the stream, unchecked
    void SendText(std::string_view text);
    void SendWebSocketPing(ByteSpan payload);
    void SendWebSocketClose(std::uint16_t code);
    void SetReading(bool on) { socket_.SetReading(on); }
    void Close();
    void Reset();

private:
    enum class End { kNone, kClose, kReset };
    struct Piece {
        Bytes bytes;
        std::uint32_t delay_ms = 0;
        bool is_text = false;
        std::size_t message_size = 0;  // 0: one message
        std::size_t frame_size = 0;    // 0: one frame
        End end = End::kNone;
    };

    WebSocketServer::Handlers WebSocketHandlers();
    void OnMessage(ByteSpan bytes);
    void OnStream(ByteSpan bytes);
    void OnEnded(const std::string& why);
    void OnPacket(ByteSpan packet);
    void OnInner(ByteSpan packet);
    bool ObeyIncomingFaults(ByteSpan packet);
    void HandleFirstMessage(ByteSpan packet);
    void HandleSealed(ByteSpan packet);
    void HandleIdentification(ByteSpan packet);
    void HandleLogin(ByteSpan packet);
    void HandleAddress(ByteSpan packet);
    void HandleReply(ByteSpan packet);
    void HandleFragment(ByteSpan packet);
    void PassOn(ByteSpan packet);

    void Disturb(Bytes wire, const std::vector<FaultRule>& rules);
    void Queue(std::vector<Piece> pieces);
    void Pump();
    void SendPiece(const Piece& piece);
    void SendStream(const Piece& piece, ByteSpan bytes);
    void Finish(End end);
    void Violation(std::string text);
    void Event(const std::string& text);

    Host* host_;
    const std::size_t number_;
    const Carrier carrier_;
    StreamSocket socket_;
    std::optional<WebSocketServer> web_socket_;
    std::string peer_;
    SecureChannel channel_;
    Reassembler reassembler_;
    Bytes stream_;  // received, not yet a complete packet
    FaultCounter counter_;

    std::string device_id_;
    std::string user_;
    std::uint32_t status_ = 0;
    std::optional<std::size_t> dongle_;
    OpenPings open_pings_;

    std::deque<Piece> outgoing_;
    std::vector<Piece> held_;  // sent after the next packet
    Bytes joined_;             // sent together with the next packet
    std::optional<EventLoop::TimerId> delay_;
    std::uint64_t stream_sent_ = 0;
    bool gone_ = false;
    std::uint64_t violations_ = 0;
    std::string last_violation_;
};

}  // namespace brennix
