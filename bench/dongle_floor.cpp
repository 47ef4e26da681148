#include "dongle_floor.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "failure.h"

namespace tarvik::bench {
namespace {

constexpr std::uint8_t kSync[] = {'C', 'N', 'Y', 'S', 8, 0, 0, 0};

void WriteAll(int port, const std::uint8_t* bytes, std::size_t count) {
    if (::write(port, bytes, count) != static_cast<ssize_t>(count)) Fail("write");
}

}  // namespace

DongleFloor::DongleFloor(const std::string& port, std::vector<Exchange> exchanges,
                         const Placement& placement)
    : exchanges_(std::move(exchanges)) {
    port_ = ::open(port.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (port_ < 0 || ::pipe2(stop_, O_CLOEXEC) != 0) Fail(port.c_str());
    termios settings{};
    ::tcgetattr(port_, &settings);
    ::cfmakeraw(&settings);
    ::tcsetattr(port_, TCSANOW, &settings);
    Synchronise();
    const auto start = [](std::thread* thread, int core, auto body) {
        *thread = std::thread([core, body] {
            PlaceThisThread(core);
            body();
        });
    };
    start(&transmitting_, placement.asking, [this] { Transmit(); });
    start(&worker_, placement.answering, [this] { Work(); });
    start(&receiving_, placement.asking, [this] { Receive(); });
}

DongleFloor::~DongleFloor() {
    requests_.Close();
    worker_.join();
    outgoing_.Close();
    transmitting_.join();
    expected_.Close();
    ::close(stop_[1]);
    receiving_.join();
    ::close(stop_[0]);
    ::close(port_);
}

void DongleFloor::Synchronise() {
    WriteAll(port_, kSync, sizeof kSync);
    if (!ReadBytes(sizeof kSync)) Fail("synchronise");
}

bool DongleFloor::ReadBytes(std::size_t count) {
    std::uint8_t bytes[4096];
    while (count > 0) {
        pollfd ends[] = {{port_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
        if (::poll(ends, 2, -1) < 0 || ends[1].revents != 0) return false;
        const ssize_t got = ::read(port_, bytes, std::min(count, sizeof bytes));
        if (got <= 0) return false;
        count -= static_cast<std::size_t>(got);
    }
    return true;
}

bool DongleFloor::Ask(std::size_t exchange) {
    auto request = std::make_unique<Block>();
    request->id = static_cast<std::uint32_t>(exchange);
    requests_.Put(request.release());
    const std::unique_ptr<Block> answer(answers_.Take());
    return answer != nullptr && answer->id == exchange;
}

void DongleFloor::Work() {
    while (Block* request = requests_.Take()) {
        outgoing_.Put(request);
        answers_.Put(arrived_.Take());
    }
}

void DongleFloor::Transmit() {
    while (Block* block = outgoing_.Take()) {
        const Exchange& exchange = exchanges_[block->id];
        expected_.Put(block);
        WriteAll(port_, exchange.request.data(), exchange.request.size());
    }
}

void DongleFloor::Receive() {
    while (Block* block = expected_.Take()) {
        if (!ReadBytes(exchanges_[block->id].answer_bytes)) return;
        arrived_.Put(block);
    }
}

}  // namespace tarvik::bench
