// All dongles of one run, with the ports they appear on.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "dongle/dongle.h"
#include "ports/port_listing.h"
#include "record/record.h"

namespace brennix {

// What of a dongle is pulled out or put back.
enum class Part {
    kAll,
    kDevice,  // only its place among the present devices; the open port goes on working
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

    // Throw std::runtime_error when the port cannot be made known.
    void Plug(std::size_t dongle, Part part);
    void Unplug(std::size_t dongle, Part part);
    // Behaviour, control units and port as the vehicle file has them; plugged state is kept.
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
