// A private message bus, in a process of its own.

#pragma once

#include <sys/types.h>

#include <string>

namespace brennix {

class PrivateBus {
public:
    PrivateBus();  // throws std::runtime_error
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& Address() const { return address_; }

private:
    pid_t process_ = -1;
    std::string address_;
};

}  // namespace brennix
