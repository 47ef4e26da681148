#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "link/packet.h"
#include "transport/serial/port_discovery.h"
#include "transport/serial/serial_port.h"

// Ports without hardware. This file's source replaces the system's serial ports, so that tests can
// drive the transport's threads through every failure, the same way on both systems.
namespace tarvik::test {

using Bytes = std::vector<std::uint8_t>;

Bytes WirePacket(std::uint32_t type, const Bytes& payload = {});
Bytes LoginPacket(const std::string& name);
inline const Bytes kSyncBytes = {0x43, 0x4E, 0x59, 0x53, 8, 0, 0, 0};

// One port with its dongle. Its public fields are set before the transport opens it, or by Inject.
class FakePort {
public:
    static std::shared_ptr<FakePort> Plug(std::int32_t number,
                                          PortReadiness readiness = PortReadiness::kReady);
    static void RemoveAll();

    // Handles a packet from the library, on the transmit thread. By default the dongle echoes SYNC
    // and answers IDEN.
    std::function<void(FakePort&, const Bytes& packet)> on_packet;
    std::string name = "Test dongle";

    void AnswerNothing() {
        on_packet = [](FakePort&, const Bytes&) {};
    }

    // The dongle sends; `piece` bytes arrive at a time (0: all at once).
    void Send(const Bytes& bytes, std::size_t piece = 0);
    void Break(std::uint32_t system_error);  // its status cannot be read until it is opened again

    std::vector<Bytes> Received() const;  // packets that came from the library
    std::size_t ReceivedCount(std::uint32_t type) const;
    std::uint32_t OpenCount() const;
    std::uint32_t CloseCount() const;
    bool IsOpen() const;
    bool HoldsAWrite() const;
    bool HoldsItsClose() const;
    std::uint32_t WaitCount() const;  // how often the receiver has slept
    std::size_t Unread() const;       // bytes from the dongle not read yet

    bool IsDrained() const;  // the receiver has read everything and sleeps again

    // Results of the next operations, instead of success.
    std::optional<std::uint32_t> open_error;
    std::optional<std::uint32_t> receive_event_error;
    std::optional<std::uint32_t> transmit_event_error;
    std::optional<std::uint32_t> comm_wait_error;
    std::optional<TransferOutcome> read_outcome;
    std::optional<TransferOutcome> write_outcome;
    bool hold_writes = false;  // until the port is woken
    bool hold_close = false;   // until it is false
    // Changes these fields while the port is open.
    template <typename Change>
    void Inject(Change change) {
        const std::lock_guard hold(lock_);
        change(*this);
        changed_.notify_all();
    }

private:
    friend struct FakePortAccess;

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::uint8_t> incoming_;
    std::size_t piece_ = 0;
    bool woken_ = false;
    bool holds_a_write_ = false;
    bool holds_its_close_ = false;
    bool open_ = false;
    bool receiver_sleeps_ = false;
    std::uint32_t opened_ = 0;
    std::uint32_t closed_ = 0;
    std::uint32_t waits_ = 0;
    std::optional<std::uint32_t> status_error_;
    std::vector<Bytes> received_;
};

}  // namespace tarvik::test
