// Either end of a connection with the radio's line protocol.

#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "sockets/stream_socket.h"

namespace brennix {

class LineSocket {
public:
    struct Handlers {
        std::function<void(std::string_view line)> received;  // without its line end
        // Called once. Delete the socket only after the handler has returned.
        std::function<void()> ended;
    };

    // Takes over `fd`, which is connected.
    LineSocket(EventLoop* loop, int fd, Handlers handlers);

    void Send(const std::string& line);

private:
    void OnBytes(ByteSpan bytes);

    Handlers handlers_;
    std::string received_;
    StreamSocket socket_;
};

// A socket to this port of the loopback address. Throws std::system_error.
int ConnectToPort(std::uint16_t port);

}  // namespace brennix
