#pragma once

#include <atomic>

#include "transport/cloud/tcp_socket.h"

namespace tarvik {

inline constexpr int kLookUpAborted = -1'000'000;  // no error code of any resolver

// ResolveTcp for callers that must not be blocked: returns kLookUpAborted within 50 ms once *abort
// is set. The system's look-up cannot be ended: it then continues on its own thread, and the
// library stays loaded for it.
int LookUpTcp(const char* host, const char* port, const std::atomic<bool>& abort,
              TcpAddresses** addresses);

}  // namespace tarvik
