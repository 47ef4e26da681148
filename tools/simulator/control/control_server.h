// The control channel: lines over TCP on the loopback address, which Windows programs under Wine
// reach too.

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "control/record_commands.h"
#include "process/event_loop.h"

namespace brennix {

class ControlServer {
public:
    using Runner = std::function<CommandResult(std::string_view line)>;

    // Waits are for entries of `record`. Port 0: any free one. Throws std::system_error.
    ControlServer(EventLoop* loop, Record* record, Runner run, std::uint16_t port);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    std::string Address() const;  // "127.0.0.1:40123"

private:
    struct Connection {
        int fd;
        std::string received;
        std::string outgoing;
        std::optional<PendingWait> wait;
        EventLoop::TimerId wait_timer;
    };
    using ConnectionPtr = std::shared_ptr<Connection>;

    void Accept();
    void OnReady(const ConnectionPtr& connection, std::uint32_t events);
    void RunLines(const ConnectionPtr& connection);
    void StartWait(const ConnectionPtr& connection, const PendingWait& wait);
    void EndWait(const ConnectionPtr& connection, const std::string& answer);
    void CheckWaits();
    void Send(const ConnectionPtr& connection, const std::string& line);
    void Flush(Connection* connection);
    void Drop(ConnectionPtr connection);  // by value, since it erases the one in the map

    EventLoop* loop_;
    Record* record_;
    Runner run_;
    int listener_;
    std::uint16_t port_ = 0;
    std::map<int, ConnectionPtr> connections_;
    std::size_t waits_ = 0;
    bool check_planned_ = false;
};

}  // namespace brennix
