#pragma once

#include <cstdint>

namespace tarvik {

inline constexpr std::uint32_t kMaxHostLength = 255;

// "<host>:<port>", split at the last colon: an IPv6 literal needs no brackets.
struct ServerAddress {
    char host[kMaxHostLength + 1];
    std::uint16_t port;
};

// False: no host, a host that is too long, or a port that is not a decimal number from 1 to 65535.
bool ParseServerAddress(const char* text, ServerAddress* address);

}  // namespace tarvik
