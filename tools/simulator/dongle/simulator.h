// All dongles of one run, and the ports that they appear on.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "dongle/dongle.h"
#include "ports/port_listing.h"
#include "record/record.h"

namespace brennix {

// The part of a dongle that is unplugged or plugged in.
enum class Part {
    kAll,
    kDevice,  // only its entry among the present devices; the open port keeps working
    kPort,    // only the port; the device stays listed
};

class Simulator {
public:
    Simulator(EventLoop* loop, std::size_t keep) : loop_(loop), record_(keep) {}

    // `uplink` null: a dongle with a serial port.
    std::size_t AddDongle(DongleSetup setup, Uplink* uplink = nullptr);
    void AddListing(std::size_t dongle, std::unique_ptr<PortListing> listing);
    // Names for people and for BRENNIX_SIM_PORTS.
    void SetPortName(std::size_t dongle, std::string name) {
        ports_[dongle].name = std::move(name);
    }
    const std::string& PortName(std::size_t dongle) const { return ports_[dongle].name; }

    // Throw std::runtime_error if the port cannot be registered.
    void Plug(std::size_t dongle, Part part);
    void Unplug(std::size_t dongle, Part part);
    // Restores behaviour, control units and port from the vehicle file; keeps the plugged state.
    void Reset(std::size_t dongle);

    std::size_t Count() const { return ports_.size(); }
    Dongle& At(std::size_t dongle) { return *ports_[dongle].dongle; }
    Record& Log() { return record_; }
    Seal& PacketSeal() { return seal_; }
    EventLoop& Loop() { return *loop_; }
    std::uint64_t Violations() const;

private:
    struct Port {
        std::string name;
        DongleSetup initial;
        std::unique_ptr<Dongle> dongle;
        std::vector<std::unique_ptr<PortListing>> listings;
    };

    EventLoop* loop_;
    Record record_;
    Seal seal_;
    std::vector<Port> ports_;
};

}  // namespace brennix
