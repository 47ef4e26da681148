#include "dongle/simulator.h"

namespace brennix {

std::size_t Simulator::AddDongle(DongleSetup setup, Uplink* uplink) {
    const std::size_t index = ports_.size();
    Port port;
    port.initial = setup;
    port.dongle = std::make_unique<Dongle>(index, std::move(setup), loop_, &record_, &seal_);
    // Not at once: the port is in the middle of sending.
    port.dongle->SetCutHandler([this, index] {
        loop_->After(std::chrono::milliseconds(0), [this, index] { Unplug(index, Part::kAll); });
    });
    port.dongle->Connect(uplink);
    ports_.push_back(std::move(port));
    return index;
}

void Simulator::AddListing(std::size_t dongle, std::unique_ptr<PortListing> listing) {
    ports_[dongle].listings.push_back(std::move(listing));
}

// First the port, so that a program that finds the device can open it.
void Simulator::Plug(std::size_t dongle, Part part) {
    Port& port = ports_[dongle];
    if (part != Part::kDevice) {
        port.dongle->PowerOn();
        for (const auto& listing : port.listings)
            listing->Link(port.dongle->Port().SlavePath());
    }
    if (part == Part::kPort) return;
    for (const auto& listing : port.listings)
        listing->Announce();
}

void Simulator::Unplug(std::size_t dongle, Part part) {
    Port& port = ports_[dongle];
    if (part != Part::kPort) {
        for (const auto& listing : port.listings)
            listing->Withdraw();
    }
    if (part == Part::kDevice) return;
    for (const auto& listing : port.listings)
        listing->Unlink();
    port.dongle->PowerOff();
}

void Simulator::Reset(std::size_t dongle) {
    Port& port = ports_[dongle];
    port.dongle->Setup() = port.initial;
    port.dongle->ClearQueuedBehaviours();
    port.dongle->Raw().Restart();
    port.dongle->Script().SetPower({});
    port.dongle->RestartScripts();
    port.dongle->Port().SetPieces(0, std::chrono::milliseconds(0));
    for (const auto& unit : port.dongle->Car().Units())
        unit->Reset();
}

std::uint64_t Simulator::Violations() const {
    std::uint64_t sum = 0;
    for (const Port& port : ports_)
        sum += port.dongle->Violations();
    return sum;
}

}  // namespace brennix
