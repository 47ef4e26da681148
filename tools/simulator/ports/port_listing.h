// Makes a dongle's pseudo-terminal appear as a serial port to programs that search for one.

#pragma once

#include <memory>
#include <string>

namespace brennix {

class PortListing {
public:
    virtual ~PortListing() = default;
    // Lets the port's node lead to `slave_path`, or to nothing.
    virtual void Link(const std::string& slave_path) = 0;
    virtual void Unlink() = 0;
    // Adds the port to the present devices, or removes it.
    virtual void Announce() = 0;
    virtual void Withdraw() = 0;
};

// A symbolic link, for programs that are told which port to open. Throws std::runtime_error or
// std::system_error. Whatever else is at its path is neither replaced nor removed.
class LinkListing : public PortListing {
public:
    // kAnyLink: in folders of which the links belong to the simulated system.
    enum class Replaces : unsigned char { kOwnLinks, kAnyLink };
    explicit LinkListing(std::string path, Replaces replaces = Replaces::kOwnLinks)
        : path_(std::move(path)), replaces_(replaces) {}
    ~LinkListing() override { LinkListing::Unlink(); }
    void Link(const std::string& slave_path) override;
    void Unlink() override;
    void Announce() override {}
    void Withdraw() override {}

private:
    void CheckReplaceable() const;

    std::string path_;
    Replaces replaces_;
    std::string target_;  // of the link as it was made; empty: not there
};

}  // namespace brennix
