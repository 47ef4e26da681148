#pragma once

#include <netdb.h>

namespace tarvik {

// What the resolver has found.
struct TcpAddresses {
    addrinfo* first = nullptr;
};

}  // namespace tarvik
