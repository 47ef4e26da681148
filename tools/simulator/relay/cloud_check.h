// What the relay may expect of the packets that are for itself.

#pragma once

#include <string>

#include "relay/crypto.h"

namespace brennix {

// `packet` holds at least a header. Returns what is wrong, empty when nothing is. Packets for
// dongles are not judged here. `device`: the static key that the handshake showed.
std::string CheckCloudPacket(ByteSpan packet, const Point& device);

// Twelve hex digits: the first six bytes of X.
std::string DeviceId(const Point& device);

}  // namespace brennix
