#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

#include "channel.h"
#include "placement.h"

namespace tarvik::bench {

// The floor of a request over the serial port: the same hand-offs with nothing in between. The
// requesting thread passes a block to its link's worker, the worker to the transmitting thread,
// which writes it to a pseudo-terminal; a process at the other end sends it back; the receiving
// thread passes it to the worker, and the worker to the requesting thread. As in the library, at
// most ten blocks are in flight.
class SerialFloor {
public:
    SerialFloor(std::size_t links, const Placement& placement);
    ~SerialFloor();
    SerialFloor(const SerialFloor&) = delete;
    SerialFloor& operator=(const SerialFloor&) = delete;

    bool Ask(std::size_t link);

private:
    struct Link {
        Channel requests;  // to the worker
        Channel arrived;   // to the worker, from the receiving thread
        Channel answers;   // to the requesting thread
        std::thread worker;
    };

    void OpenTerminal();
    void StartPeer();
    void Work(Link* link);
    void Transmit();
    void Receive();

    int terminal_ = -1;
    int peer_end_ = -1;
    pid_t peer_ = -1;
    std::vector<std::unique_ptr<Link>> links_;
    Channel outgoing_;
    Gate slots_;
    std::thread transmitting_;
    std::thread receiving_;
};

}  // namespace tarvik::bench
