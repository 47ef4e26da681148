// The device's side of the tests: a relay in this process, its control channel, and a client with a
// secure channel over TCP or WebSocket.

#pragma once

#include <optional>
#include <string>
#include <thread>

#include "relay/relay_run.h"
#include "relay/secure_channel.h"

namespace brennix::test {

inline constexpr int kPatienceMs = 10'000;

// A socket to the loopback interface.
class Socket {
public:
    explicit Socket(const std::string& address);  // "127.0.0.1:PORT"
    ~Socket() { Close(); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    bool IsConnected() const { return fd_ >= 0; }
    int Descriptor() const { return fd_; }
    void Close();
    void Send(ByteSpan bytes);
    void Send(const std::string& text) { Send(Bytes(text.begin(), text.end())); }
    // Reads `count` bytes; fewer if the connection ends or no more come in time.
    Bytes Read(std::size_t count);
    std::string ReadUntil(const std::string& end);
    bool IsAtEnd() { return Read(1).empty(); }

private:
    int fd_;
};

// Runs a relay with one demo car on free ports, on its own thread.
class RunningRelay {
public:
    explicit RunningRelay(const std::vector<std::string>& faults = {}, std::size_t dongles = 1);
    ~RunningRelay();
    RunningRelay(const RunningRelay&) = delete;
    RunningRelay& operator=(const RunningRelay&) = delete;

    std::string Place(const std::string& name) const { return places_.at("BRENNIX_RELAY_" + name); }
    std::string WebSocketAddress() const;  // "127.0.0.1:PORT"
    Point PublicKey() const;
    std::string Command(const std::string& line);  // the answer line
    std::uint64_t Violations();
    std::string LastViolation();

private:
    std::string folder_;
    std::map<std::string, std::string> places_;
    std::thread thread_;
    std::optional<Socket> control_;
};

// A library as seen by the relay.
class Device {
public:
    explicit Device(const RunningRelay& relay, Carrier carrier = Carrier::kTcp);

    bool Handshake();          // NHS1, NHS2
    std::uint32_t Identify();  // DEVI, DEVA: the status
    bool Connect() { return Handshake() && Identify() == 0; }
    void Send(ByteSpan packet);  // sealed
    // The next packet, opened if it was sealed. Empty: none came, the connection ended, or it
    // cannot be opened.
    std::optional<Bytes> Read();
    std::optional<Bytes> ReadWire();
    void SendWire(ByteSpan packet);
    Bytes MakeFirstMessage();
    Socket& Wire() { return socket_; }

    void Login();
    // Selects the first dongle that logs in.
    bool UseDongle();

private:
    bool TakeFrame();

    Carrier carrier_;
    Socket socket_;
    Point relay_;
    KeyPair identity_ = MakeKeyPair();
    KeyPair ephemeral_ = MakeKeyPair();
    Key shared1_{};
    Key to_relay_{};
    Key from_relay_{};
    Nonce salt_{};
    std::uint64_t sent_ = 0;
    std::uint64_t opened_ = 0;
    Bytes stream_;
};

Bytes MaskedFrame(std::uint8_t first, ByteSpan payload);
// Asks the engine for its VIN.
Bytes VinRequest(std::uint32_t id);

}  // namespace brennix::test
