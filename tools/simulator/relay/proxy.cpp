#include "relay/proxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>

namespace brennix {

namespace {

constexpr std::string_view kScheme = "http://";

// "host:port" of the request and, for an absolute URL, the path after it.
struct Destination {
    std::string name;
    std::string path;
};

std::optional<Destination> ReadDestination(const HttpHead& head) {
    if (head.method == "CONNECT") return Destination{head.target, ""};
    if (!head.target.starts_with(kScheme)) return std::nullopt;
    const std::string rest = head.target.substr(kScheme.size());
    const std::size_t slash = std::min(rest.find('/'), rest.size());
    Destination destination = {rest.substr(0, slash), rest.substr(slash)};
    if (destination.path.empty()) destination.path = "/";
    if (destination.name.find(':') == std::string::npos) destination.name += ":80";
    return destination;
}

// The request as its server expects it, with the bytes received after it.
std::string Rewrite(const HttpHead& head, const std::string& path, std::string_view received) {
    std::string text = head.method + " " + path + " " + head.version + "\r\n";
    std::string_view rest = received.substr(0, head.size - 2);
    rest.remove_prefix(rest.find("\r\n") + 2);
    while (!rest.empty()) {
        const std::size_t end = rest.find("\r\n") + 2;
        const std::string_view line = rest.substr(0, end);
        if (!LowerCase(line).starts_with("proxy-")) text += line;
        rest.remove_prefix(end);
    }
    return text + "\r\n" + std::string(received.substr(head.size));
}

std::optional<sockaddr_in> ReadAddress(const std::string& name) {
    const std::size_t colon = name.rfind(':');
    if (colon == std::string::npos) return std::nullopt;
    std::string host = name.substr(0, colon);
    if (host == "localhost") host = "127.0.0.1";
    std::uint16_t port = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data() + colon + 1, end, port);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (error != std::errc() || stop != end ||
        ::inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) {
        return std::nullopt;
    }
    return address;
}

}  // namespace

ConnectProxy::ConnectProxy(EventLoop* loop, const std::string& host, std::uint16_t port,
                           std::function<void(const std::string&)> say)
    : loop_(loop),
      say_(std::move(say)),
      listener_(loop, host, port, [this](int fd) { Accept(fd); }) {}

ConnectProxy::~ConnectProxy() = default;

void ConnectProxy::Accept(int fd) {
    const std::uint64_t number = ++last_tunnel_;
    tunnels_[number].client = std::make_unique<StreamSocket>(
        loop_, fd, nullptr,
        StreamSocket::Handlers{
            .received = [this, number](ByteSpan bytes) { OnClient(number, bytes); },
            .ended = [this, number](const std::string&) { Drop(number); }});
}

void ConnectProxy::OnClient(std::uint64_t number, ByteSpan bytes) {
    const auto found = tunnels_.find(number);
    if (found == tunnels_.end()) return;
    Tunnel& tunnel = found->second;
    if (tunnel.server) return tunnel.server->Send(bytes);
    tunnel.request.append(bytes.begin(), bytes.end());
    if (HasWholeHead(tunnel.request)) return OnRequest(number, &tunnel);
    if (tunnel.request.size() > kMaxHeadSize)
        Answer(&tunnel, "431 Request Header Fields Too Large");
}

void ConnectProxy::OnRequest(std::uint64_t number, Tunnel* tunnel) {
    ++requests_;
    const std::optional<HttpHead> head = ReadHttpHead(tunnel->request);
    if (!head) return Answer(tunnel, "400 Bad Request");
    say_(head->method + " " + head->target + " for " + tunnel->client->Peer());
    if (refused_with_ != 0) return Answer(tunnel, std::to_string(refused_with_) + " Refused");
    const std::optional<Destination> destination = ReadDestination(*head);
    if (!destination) return Answer(tunnel, "405 Method Not Allowed");
    const std::optional<int> fd = ConnectTo(destination->name);
    if (!fd) return Answer(tunnel, "502 Bad Gateway");
    tunnel->server = std::make_unique<StreamSocket>(
        loop_, *fd, nullptr,
        StreamSocket::Handlers{.received =
                                   [this, number](ByteSpan bytes) {
                                       const auto found = tunnels_.find(number);
                                       if (found != tunnels_.end()) {
                                           found->second.client->Send(bytes);
                                       }
                                   },
                               .ended = [this, number](const std::string&) { Drop(number); }});
    if (head->method == "CONNECT") {
        tunnel->client->Send(AsBytes("HTTP/1.1 200 Connection established\r\n\r\n"));
        tunnel->server->Send(AsBytes(std::string_view(tunnel->request).substr(head->size)));
    } else {
        tunnel->server->Send(AsBytes(Rewrite(*head, destination->path, tunnel->request)));
    }
    tunnel->request.clear();
}

// Blocks, which does not matter on a desk.
std::optional<int> ConnectProxy::ConnectTo(const std::string& name) {
    const auto mapped = targets_.find(name);
    const std::optional<sockaddr_in> address =
        ReadAddress(mapped == targets_.end() ? name : mapped->second);
    if (!address) return std::nullopt;
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    ::fcntl(fd, F_SETFL, O_NONBLOCK);
    return fd;
}

void ConnectProxy::Answer(Tunnel* tunnel, const std::string& status) {
    const std::string answer =
        "HTTP/1.1 " + status + "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
    tunnel->request.clear();
    tunnel->client->Send(AsBytes(answer));
    tunnel->client->CloseWhenSent();
    say_("answered " + status);
    for (const auto& [number, other] : tunnels_) {
        if (&other == tunnel) return Drop(number);
    }
}

// Deferred, since one of its sockets is still reporting. Bytes from before the end still reach the
// other side.
void ConnectProxy::Drop(std::uint64_t number) {
    const auto found = tunnels_.find(number);
    if (found == tunnels_.end()) return;
    found->second.client->CloseWhenSent();
    if (found->second.server) found->second.server->CloseWhenSent();
    loop_->After(std::chrono::milliseconds(0), [this, number] { tunnels_.erase(number); });
}

void ConnectProxy::KillAll() {
    for (const auto& [number, tunnel] : tunnels_) {
        tunnel.client->Reset();
        if (tunnel.server) tunnel.server->Reset();
    }
    tunnels_.clear();
}

}  // namespace brennix
