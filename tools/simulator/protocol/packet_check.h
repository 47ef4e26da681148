// What a packet from the host must look like. Strict: packets that a dongle could still interpret
// are reported too.

#pragma once

#include <string>

#include "protocol/wire.h"

namespace brennix {

// `packet` has at least a header. Returns what is wrong with it; empty if nothing is. FRAG is
// checked by the reassembler, REPL by OpenPings.
std::string CheckPacket(ByteSpan packet);

// Empty if `packet` has exactly `expected` bytes.
std::string CheckLength(ByteSpan packet, std::size_t expected);

bool IsZero(ByteSpan bytes);

}  // namespace brennix
