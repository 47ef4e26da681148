// The two kinds of a relay's address. The parts of an accepted one must be parts of the input.
#include <algorithm>
#include <cstdlib>
#include <string>

#include "transport/cloud/server_address.h"
#include "transport/cloud/websocket_url.h"

using namespace tarvik;

namespace {

void Require(bool holds) {
    if (!holds) std::abort();
}

void ParseUrl(const std::string& text) {
    WebSocketUrl url{};
    if (!ParseWebSocketUrl(text.c_str(), &url)) return;
    const std::string server(url.server);
    const std::string endpoint(url.endpoint);
    Require(text.starts_with((url.secure ? "wss://" : "ws://") + server));
    Require(server.size() < kUrlPartCapacity && server.find_first_of(":/") == server.npos);
    Require(endpoint == "/" || text.ends_with(endpoint));
    Require(endpoint.front() == '/');
}

void ParseAddress(const std::string& text) {
    ServerAddress address{};
    if (!ParseServerAddress(text.c_str(), &address)) return;
    const std::string host(address.host);
    Require(!host.empty() && host.size() <= kMaxHostLength && address.port != 0);
    Require(text.starts_with(host + ":"));
    Require(std::stoul(text.substr(host.size() + 1)) == address.port);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // A configured address has no zero byte.
    const auto* begin = reinterpret_cast<const char*>(data);
    const std::string text(begin, std::find(begin, begin + size, '\0'));
    ParseUrl(text);
    ParseAddress(text);
    return 0;
}
