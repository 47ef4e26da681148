#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "transport/cloud/secure_channel.h"
#include "transport/cloud/secure_channel_state.h"

// Packets on a socket, sealed with the library's primitives, for an echoing relay and the floor of
// its round trip.
namespace tarvik::bench {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kSealBytes = 24;  // added to the length of a sealed packet

// The library's session, as after a handshake. Both directions use the same key, which makes no
// difference for a measurement.
void InstallBenchSession();

enum class Side : std::uint8_t { kDevice, kRelay };

// Seals one side's packets and opens those of the other.
class Sealer {
public:
    explicit Sealer(Side side);

    // Sets `sealed` to the whole CRYP packet around `plain`.
    void Seal(ByteView plain, Bytes* sealed);
    // Sets `plain` to the contents of a whole CRYP packet. An invalid one ends the program.
    void Open(const Bytes& sealed, Bytes* plain);

private:
    std::string_view sent_as_;
    std::string_view received_as_;
    AeadKey sending_;
    AeadKey receiving_;
    std::uint64_t sent_ = 0;
    std::uint64_t received_ = 0;
};

// A blocking socket that carries packets; on a WebSocket as binary messages of one frame each,
// masked by the client. Nothing else of the protocol is supported.
class PacketSocket {
public:
    PacketSocket() = default;
    explicit PacketSocket(int file) : file_(file) {}
    PacketSocket(const PacketSocket&) = delete;
    PacketSocket& operator=(const PacketSocket&) = delete;
    ~PacketSocket();

    void Connect(const std::string& address);  // "127.0.0.1:PORT"
    void AskForWebSocket();
    // False if the connection has ended.
    bool AcceptWebSocket();
    void Shutdown();

    bool Send(const Bytes& packet);
    bool Receive(Bytes* packet);
    // Sleeps until there is something to receive (or the connection ends), or until the eventfd
    // `event` is set. True if `event` was set; it is reset.
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
    // The data of one system call, as far as it has not been taken yet.
    std::array<std::uint8_t, 8192> ahead_;
    std::size_t ahead_begin_ = 0;
    std::size_t ahead_end_ = 0;
};

}  // namespace tarvik::bench
