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

// A symbolic link, for programs that are told which port to open. Throws std::system_error.
class LinkListing : public PortListing {
public:
    explicit LinkListing(std::string path) : path_(std::move(path)) {}
    ~LinkListing() override { LinkListing::Unlink(); }
    void Link(const std::string& slave_path) override;
    void Unlink() override;
    void Announce() override {}
    void Withdraw() override {}

private:
    std::string path_;
    bool linked_ = false;
};

}  // namespace brennix
