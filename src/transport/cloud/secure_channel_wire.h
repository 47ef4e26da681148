#pragma once

#include <cstddef>
#include <cstdint>

#include "transport/cloud/secure_channel_crypto.h"

// Layouts of the handshake's messages and of sealed packets, as in link/wire_packets.h.
namespace tarvik {

// NHS1, the device's handshake message.
struct Nhs1Wire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint8_t tag[kAeadTagSize];  // of the encrypted static key
    std::uint8_t ephemeral_key[kPointSize];
    std::uint8_t static_key[kPointSize];  // encrypted
    std::uint8_t zero[2];
};
static_assert(offsetof(Nhs1Wire, tag) == 8);
static_assert(offsetof(Nhs1Wire, ephemeral_key) == 24);
static_assert(offsetof(Nhs1Wire, static_key) == 89);
static_assert(sizeof(Nhs1Wire) == 156);

// NHS2, the relay's handshake message.
struct Nhs2Wire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint8_t tag[kAeadTagSize];  // of the welcome
    std::uint8_t ephemeral_key[kPointSize];
    std::uint8_t unread[7];
};  // the encrypted welcome follows, at least kShortestWelcome bytes
static_assert(offsetof(Nhs2Wire, tag) == 8);
static_assert(offsetof(Nhs2Wire, ephemeral_key) == 24);
static_assert(sizeof(Nhs2Wire) == 96);
inline constexpr std::uint32_t kShortestWelcome = 7;

// CRYP, a sealed packet.
struct CrypWire {
    std::uint32_t type;
    std::uint32_t length;
    std::uint8_t tag[kAeadTagSize];
};  // one whole packet follows, encrypted
static_assert(offsetof(CrypWire, tag) == 8);
static_assert(sizeof(CrypWire) == 24);

}  // namespace tarvik
