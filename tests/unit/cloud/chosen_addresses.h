#pragma once

#include <netdb.h>
#include <netinet/in.h>

#include <list>

namespace tarvik::test {

// What every name resolves to while this object lives. One at a time; Linux only.
class ChosenAddresses {
public:
    ChosenAddresses();
    ~ChosenAddresses();
    ChosenAddresses(const ChosenAddresses&) = delete;
    ChosenAddresses& operator=(const ChosenAddresses&) = delete;

    void Add(const sockaddr_in& address);
    addrinfo* First() { return entries_.empty() ? nullptr : &entries_.front().info; }

private:
    struct Entry {
        sockaddr_in address;
        addrinfo info;
    };
    std::list<Entry> entries_;
};

}  // namespace tarvik::test
