#pragma once

#include <cstdint>

namespace tarvik {

inline constexpr std::uint32_t kUrlPartCapacity = 256;  // with the NUL

struct WebSocketUrl {
    char server[kUrlPartCapacity];
    std::uint32_t port;
    char endpoint[kUrlPartCapacity];
    bool secure;
};

// "ws://" or "wss://", server, optional port, optional path. Logs what it refuses.
bool ParseWebSocketUrl(const char* text, WebSocketUrl* url);

}  // namespace tarvik
