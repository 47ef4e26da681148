#include "transport/cloud/websocket_url.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "transport/cloud/cloud_log.h"

namespace tarvik {
namespace {

constexpr std::uint32_t kPlainPort = 80;
constexpr std::uint32_t kSecurePort = 443;
constexpr std::size_t kPortCapacity = 10;  // with the NUL

// Removes the scheme from the front of `rest`.
bool ReadScheme(std::string_view* rest, WebSocketUrl* url) {
    for (const std::string_view scheme : {"wss://", "ws://"}) {
        if (!rest->starts_with(scheme)) continue;
        url->secure = scheme == "wss://";
        url->port = url->secure ? kSecurePort : kPlainPort;
        rest->remove_prefix(scheme.size());
        return true;
    }
    CloudLog("Invalid WebSocket URL scheme. Expected ws:// or wss://\n");
    return false;
}

template <std::size_t Capacity>
bool CopyPart(std::string_view text, char (&part)[Capacity], const char* refusal) {
    if (text.size() >= Capacity) {
        CloudLog("%s", refusal);
        return false;
    }
    std::memcpy(part, text.data(), text.size());
    part[text.size()] = '\0';
    return true;
}

// Deliberate: neither digits nor range are checked; letters give port 0.
bool ReadPort(std::string_view text, std::uint32_t* port) {
    char digits[kPortCapacity];
    if (!CopyPart(text, digits, "Port number too long\n")) return false;
    *port = static_cast<std::uint32_t>(std::atoi(digits));
    return true;
}

}  // namespace

bool ParseWebSocketUrl(const char* text, WebSocketUrl* url) {
    std::string_view rest(text);
    if (!ReadScheme(&rest, url)) return false;

    const std::size_t slash = rest.find('/');
    const std::string_view authority = rest.substr(0, slash);
    const std::string_view path = slash == rest.npos ? "/" : rest.substr(slash);
    // A colon after the first slash belongs to the path.
    const std::size_t colon = authority.find(':');
    if (colon != authority.npos && !ReadPort(authority.substr(colon + 1), &url->port)) return false;
    return CopyPart(authority.substr(0, colon), url->server, "Server name too long\n") &&
           CopyPart(path, url->endpoint, "Endpoint path too long\n");
}

}  // namespace tarvik
