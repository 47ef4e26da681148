// A small HTTP proxy to test a client's proxy setting: CONNECT, and requests with an absolute URL,
// which are forwarded together with everything that follows.

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "relay/http_head.h"
#include "sockets/listener.h"
#include "sockets/stream_socket.h"

namespace brennix {

class ConnectProxy {
public:
    ConnectProxy(EventLoop* loop, const std::string& host, std::uint16_t port,
                 std::function<void(const std::string&)> say);
    ~ConnectProxy();

    Listener& Port() { return listener_; }
    // Connections to `name` ("relay.example:443") go to `target` ("127.0.0.1:7702") instead. Only
    // numeric addresses and localhost are resolved: the proxy serves a single desk.
    void Map(const std::string& name, const std::string& target) { targets_[name] = target; }
    // Answers requests with this status. 0: executes them.
    void RefuseWith(unsigned status) { refused_with_ = status; }
    void KillAll();
    std::size_t OpenTunnels() const { return tunnels_.size(); }
    std::uint64_t Requests() const { return requests_; }

private:
    struct Tunnel {
        std::unique_ptr<StreamSocket> client;
        std::unique_ptr<StreamSocket> server;  // null: the request is incomplete
        std::string request;
    };

    void Accept(int fd);
    void OnClient(std::uint64_t number, ByteSpan bytes);
    void OnRequest(std::uint64_t number, Tunnel* tunnel);
    // Empty: no such target.
    std::optional<int> ConnectTo(const std::string& name);
    void Answer(Tunnel* tunnel, const std::string& status);
    void Drop(std::uint64_t number);

    EventLoop* loop_;
    std::function<void(const std::string&)> say_;
    std::map<std::string, std::string> targets_;
    unsigned refused_with_ = 0;
    std::uint64_t requests_ = 0;
    std::uint64_t last_tunnel_ = 0;
    std::map<std::uint64_t, Tunnel> tunnels_;
    Listener listener_;
};

}  // namespace brennix
