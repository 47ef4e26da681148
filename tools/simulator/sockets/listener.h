// A TCP port that accepts connections, or temporarily refuses them.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "process/event_loop.h"

namespace brennix {

class Listener {
public:
    // Port 0: any free one. `accepted` owns the socket that it gets. Throws std::system_error.
    Listener(EventLoop* loop, const std::string& host, std::uint16_t port,
             std::function<void(int fd)> accepted);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    const std::string& Address() const { return address_; }  // "127.0.0.1:40123"
    bool IsOn() const { return on_; }
    // Off: connections are refused, but the port stays bound.
    void Switch(bool on);

private:
    void Bind(const std::string& host, std::uint16_t* port);
    void Accept();

    EventLoop* loop_;
    std::function<void(int)> accepted_;
    int fd_ = -1;
    bool on_ = false;
    std::string host_;
    std::uint16_t port_;
    std::string address_;
};

}  // namespace brennix
