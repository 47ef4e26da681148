#include "serial_floor.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "failure.h"

namespace tarvik::bench {
namespace {

constexpr int kSlots = 10;
constexpr std::uint8_t kRequest[] = {0x22, 0xF1, 0x90};

// The transferred part of a block: its id and bytes.
struct Frame {
    std::uint32_t id;
    std::uint8_t bytes[kBlockBytes];
};

}  // namespace

void SerialFloor::OpenTerminal() {
    peer_end_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (peer_end_ < 0 || ::grantpt(peer_end_) != 0 || ::unlockpt(peer_end_) != 0) Fail("pty");
    char path[64];
    if (::ptsname_r(peer_end_, path, sizeof path) != 0) Fail("ptsname");
    terminal_ = ::open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal_ < 0) Fail(path);
    termios settings{};
    ::tcgetattr(terminal_, &settings);
    ::cfmakeraw(&settings);
    ::tcsetattr(terminal_, TCSANOW, &settings);
}

// The peer sends back what it reads from its standard input, which is the other end of the
// terminal.
void SerialFloor::StartPeer() {
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, peer_end_, STDIN_FILENO);
    std::string program = TARVIK_BENCH_PEER;
    char* arguments[] = {program.data(), nullptr};
    char* environment[] = {nullptr};  // nothing is preloaded
    if (::posix_spawn(&peer_, program.c_str(), &actions, nullptr, arguments, environment) != 0) {
        Fail(program.c_str());
    }
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(peer_end_);
}

SerialFloor::SerialFloor(std::size_t links, const Placement& placement) : slots_(kSlots) {
    OpenTerminal();
    StartPeer();
    PlaceProcess(peer_, placement.answering);
    transmitting_ = std::thread([this, core = placement.asking] {
        PlaceThisThread(core);
        Transmit();
    });
    for (std::size_t i = 0; i < links; ++i) {
        Link* link = links_.emplace_back(std::make_unique<Link>()).get();
        link->worker = std::thread([this, link, core = placement.answering] {
            PlaceThisThread(core);
            Work(link);
        });
    }
    receiving_ = std::thread([this, core = placement.asking] {
        PlaceThisThread(core);
        Receive();
    });
}

SerialFloor::~SerialFloor() {
    for (const auto& link : links_) {
        link->requests.Close();
        link->worker.join();
    }
    outgoing_.Close();
    transmitting_.join();
    // Hangs up the terminal, which ends the receiving thread. SIGKILL, because the device mock may
    // have blocked all other signals in this thread, and the peer has inherited that.
    ::kill(peer_, SIGKILL);
    ::waitpid(peer_, nullptr, 0);
    receiving_.join();
    ::close(terminal_);
}

bool SerialFloor::Ask(std::size_t link) {
    auto request = std::make_unique<Block>();
    request->id = static_cast<std::uint32_t>(link);
    std::memcpy(request->bytes, kRequest, sizeof kRequest);
    links_[link]->requests.Put(request.release());
    const std::unique_ptr<Block> answer(links_[link]->answers.Take());
    return answer != nullptr && answer->bytes[0] == kRequest[0];
}

void SerialFloor::Work(Link* link) {
    while (Block* request = link->requests.Take()) {
        slots_.Enter();
        outgoing_.Put(request);
        Block* answer = link->arrived.Take();
        slots_.Leave();
        link->answers.Put(answer);
    }
}

void SerialFloor::Transmit() {
    while (Block* taken = outgoing_.Take()) {
        const std::unique_ptr<Block> block(taken);
        Frame frame{.id = block->id, .bytes = {}};
        std::memcpy(frame.bytes, block->bytes, sizeof frame.bytes);
        if (::write(terminal_, &frame, sizeof frame) != sizeof frame) Fail("write");
    }
}

void SerialFloor::Receive() {
    std::uint8_t bytes[4096];
    std::size_t held = 0;
    for (;;) {
        const ssize_t got = ::read(terminal_, bytes + held, sizeof bytes - held);
        if (got <= 0) return;
        held += static_cast<std::size_t>(got);
        std::size_t used = 0;
        for (; held - used >= sizeof(Frame); used += sizeof(Frame)) {
            Frame frame;
            std::memcpy(&frame, bytes + used, sizeof frame);
            auto block = std::make_unique<Block>();
            block->id = frame.id;
            std::memcpy(block->bytes, frame.bytes, sizeof frame.bytes);
            links_[frame.id]->arrived.Put(block.release());
        }
        held -= used;
        std::memmove(bytes, bytes + used, held);
    }
}

}  // namespace tarvik::bench
