#pragma once

#include <cstddef>
#include <cstdint>

#include "transport/cloud/secure_channel_crypto.h"

// Layouts of the channel's own packets, header included. Bytes without a name of their own are zero
// in what is sent and ignored in what is received.
namespace tarvik {

// NHS1, the device's handshake message.
struct Nhs1Wire {
    std::uint8_t header[8];
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
    std::uint8_t header[8];
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
    std::uint8_t header[8];
    std::uint8_t tag[kAeadTagSize];
};  // one whole packet follows, encrypted
static_assert(offsetof(CrypWire, tag) == 8);
static_assert(sizeof(CrypWire) == 24);

// DEVI, the device's identification.
inline constexpr std::size_t kShortIdSize = 6;
struct DeviWire {
    std::uint8_t header[8];
    std::uint8_t short_id[kShortIdSize];
    std::uint8_t zero[2];
    std::uint8_t public_key[kPointSize];
    std::uint8_t padding[3];
};
static_assert(offsetof(DeviWire, short_id) == 8);
static_assert(offsetof(DeviWire, public_key) == 16);
static_assert(sizeof(DeviWire) == 84);

// DEVA, the relay's answer to it.
struct DevaWire {
    std::uint8_t header[8];
    std::uint32_t status;
    std::uint32_t capabilities;
};
static_assert(offsetof(DevaWire, status) == 8);
static_assert(offsetof(DevaWire, capabilities) == 12);
static_assert(sizeof(DevaWire) == 16);

}  // namespace tarvik
