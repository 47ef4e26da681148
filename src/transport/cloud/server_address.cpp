#include "transport/cloud/server_address.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace tarvik {
namespace {

bool ParsePort(std::string_view text, std::uint16_t* port) {
    const char* end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, *port);
    return result.ec == std::errc{} && result.ptr == end && *port != 0;
}

}  // namespace

bool ParseServerAddress(const char* text, ServerAddress* address) {
    const std::string_view whole(text);
    const std::size_t colon = whole.rfind(':');
    if (colon == std::string_view::npos || colon == 0 || colon > kMaxHostLength) return false;
    if (!ParsePort(whole.substr(colon + 1), &address->port)) return false;
    std::memcpy(address->host, text, colon);
    address->host[colon] = '\0';
    return true;
}

}  // namespace tarvik
