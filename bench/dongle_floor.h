#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "channel.h"
#include "placement.h"

namespace tarvik::bench {

// The floor of a request by its bytes on the wire: the bytes that the library sends go to a dongle
// of the same simulator, and as many come back, through the hand-offs described at SerialFloor. It
// includes the dongle's processing, but not that of a library.
class DongleFloor {
public:
    struct Exchange {
        std::vector<std::uint8_t> request;
        std::size_t answer_bytes;
    };

    DongleFloor(const std::string& port, std::vector<Exchange> exchanges,
                const Placement& placement);
    ~DongleFloor();
    DongleFloor(const DongleFloor&) = delete;
    DongleFloor& operator=(const DongleFloor&) = delete;

    // One at a time.
    bool Ask(std::size_t exchange);

private:
    void Synchronise();
    void Work();
    void Transmit();
    void Receive();
    // False if the port has been closed.
    bool ReadBytes(std::size_t count);

    const std::vector<Exchange> exchanges_;
    int port_ = -1;
    int stop_[2] = {-1, -1};
    Channel requests_;  // to the worker
    Channel outgoing_;  // to the transmitting thread
    Channel expected_;  // to the receiving thread
    Channel arrived_;   // from there to the worker
    Channel answers_;   // to the requesting thread
    std::thread worker_;
    std::thread transmitting_;
    std::thread receiving_;
};

}  // namespace tarvik::bench
