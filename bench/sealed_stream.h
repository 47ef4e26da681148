#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_state.h"

// Packets on a socket, sealed with the library's own primitives: what a relay that echoes and the
// floor of its round trip are made of.
namespace tarvik::bench {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kSealBytes = 24;  // a sealed packet is so much longer

// The library's own session, as after a handshake. Both of its directions have one key, which is as
// good as two for a measurement.
void InstallBenchSession();

enum class Side : std::uint8_t { kDevice, kRelay };

// Seals what one side sends and opens what the other has sent.
class Sealer {
public:
    explicit Sealer(Side side);

    // `sealed` becomes the whole CRYP packet around `plain`.
    void Seal(ByteView plain, Bytes* sealed);
    // `plain` becomes what is inside a whole CRYP packet. A wrong one ends the program.
    void Open(const Bytes& sealed, Bytes* plain);

private:
    std::string_view sent_as_;
    std::string_view received_as_;
    AeadKey sending_;
    AeadKey receiving_;
    std::uint64_t sent_ = 0;
    std::uint64_t received_ = 0;
};

// A blocking socket with packets on it; those of a WebSocket are binary messages of one frame each,
// masked by the client. Nothing but that of the protocol is understood.
class PacketSocket {
public:
    PacketSocket() = default;
    explicit PacketSocket(int file) : file_(file) {}
    PacketSocket(const PacketSocket&) = delete;
    PacketSocket& operator=(const PacketSocket&) = delete;
    ~PacketSocket();

    void Connect(const std::string& address);  // "127.0.0.1:PORT"
    void AskForWebSocket();
    // False: the connection has ended.
    bool AcceptWebSocket();
    void Shutdown();

    bool Send(const Bytes& packet);
    bool Receive(Bytes* packet);
    // Sleeps until there is something to receive, the end included, or until `event` is set, a
    // descriptor that counts. True: that was it, and it is reset.
    bool AwaitEvent(int event) const;

private:
    bool ReadAhead();
    bool ReadAll(void* data, std::size_t size);
    bool ReadHead(std::string* head);
    bool ReceiveFrame(Bytes* packet);

    int file_ = -1;
    bool is_web_socket_ = false;
    bool is_client_ = false;
    Bytes frame_;
    // As much as one system call gives; what of it has not been taken yet.
    std::array<std::uint8_t, 8192> ahead_;
    std::size_t ahead_begin_ = 0;
    std::size_t ahead_end_ = 0;
};

}  // namespace tarvik::bench
