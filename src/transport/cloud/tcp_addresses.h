#pragma once

struct addrinfo;

namespace tarvik {

// What the resolver has found.
struct TcpAddresses {
    addrinfo* first = nullptr;
};

}  // namespace tarvik
