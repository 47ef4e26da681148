// What packets for the relay itself must look like.

#pragma once

#include <string>

#include "relay/crypto.h"

namespace brennix {

// `packet` has at least a header. Returns what is wrong; empty if nothing is. Packets for dongles
// are not checked here. `device`: the static key from the handshake.
std::string CheckCloudPacket(ByteSpan packet, const Point& device);

// Twelve hex digits: the first six bytes of X.
std::string DeviceId(const Point& device);

}  // namespace brennix
