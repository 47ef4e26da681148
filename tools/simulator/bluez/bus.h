// A connection to the message bus, served by the program's event loop.

#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <memory>
#include <string>

#include "process/event_loop.h"

namespace brennix {

class Bus {
public:
    // Throws sdbus::Error.
    Bus(EventLoop* loop, const std::string& address);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    sdbus::IConnection& Connection() { return *connection_; }
    // Handles what came and sends what waits. Call after any use of the connection outside its
    // handlers.
    void Pump();
    // While mute, it receives and sends nothing.
    void SetMute(bool mute);
    // Called when somebody has left the bus.
    void SetLeaveHandler(std::function<void(const std::string& name)> handler) {
        left_ = std::move(handler);
    }

private:
    void OnOwnerChanged(sdbus::Message& message);

    EventLoop* loop_;
    std::unique_ptr<sdbus::IConnection> connection_;
    std::function<void(const std::string&)> left_;
    int fd_;
    bool is_mute_ = false;
    EventLoop::TimerId timer_;
};

}  // namespace brennix
