// One computer's Bluetooth, as far as it uses the simulated radio: a connection of the line
// protocol.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "relay/stream_socket.h"

namespace brennix {

enum class ScanMode { kOff, kPassive, kActive };

class Central {
public:
    struct Handlers {
        std::function<void(std::string_view line)> received;  // without its line end
        // Once. The central may be deleted only after the handler returned.
        std::function<void()> left;
    };

    // Takes over `fd`.
    Central(EventLoop* loop, std::size_t number, int fd, Handlers handlers);

    std::size_t Number() const { return number_; }
    void Send(const std::string& line);

    ScanMode scan = ScanMode::kOff;

private:
    void OnBytes(ByteSpan bytes);

    const std::size_t number_;
    Handlers handlers_;
    std::string received_;
    StreamSocket socket_;
};

}  // namespace brennix
