#pragma once

#include <netinet/in.h>

namespace tarvik::test {

// What every name resolves to while this object lives: at first to nothing. One at a time; Linux
// only. A look-up that nobody waits for any more may come later.
class ChosenAddresses {
public:
    ChosenAddresses() = default;
    ~ChosenAddresses();
    ChosenAddresses(const ChosenAddresses&) = delete;
    ChosenAddresses& operator=(const ChosenAddresses&) = delete;

    static void Add(const sockaddr_in& address);
};

}  // namespace tarvik::test
