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

// Reads "ws://" or "wss://", server, optional port, optional path. False: logged.
bool ParseWebSocketUrl(const char* text, WebSocketUrl* url);

}  // namespace tarvik
