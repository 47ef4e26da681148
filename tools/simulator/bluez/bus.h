// A connection to the message bus that is served by the program's event loop.

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
    // Carries out what came and sends what waits. After everything that used the connection outside
    // of a handler of it.
    void Pump();
    // While it is mute, it takes nothing in and says nothing.
    void SetMute(bool mute);
    // Somebody left the bus.
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
