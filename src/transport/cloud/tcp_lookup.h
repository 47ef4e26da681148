#pragma once

#include <atomic>

#include "transport/cloud/tcp_socket.h"

namespace tarvik {

inline constexpr int kLookUpAborted = -1'000'000;  // no error code of any resolver

// ResolveTcp for callers that must not be held up: kLookUpAborted when *abort was set meanwhile,
// which it sees within 50 ms. The system's look-up cannot be ended; it then goes on on a thread of
// its own, and the library stays loaded for it.
int LookUpTcp(const char* host, const char* port, const std::atomic<bool>& abort,
              TcpAddresses** addresses);

}  // namespace tarvik
