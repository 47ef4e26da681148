// What a dongle may expect of a packet from the host. Nothing is forgiven here: whether the dongle
// could make sense of the packet all the same is another question.

#pragma once

#include <string>

#include "protocol/wire.h"

namespace brennix {

// `packet` holds at least a header. Returns what is wrong with it, empty when nothing is. FRAG is
// judged by the reassembler, REPL by whoever knows the PING.
std::string CheckPacket(ByteSpan packet);

// Empty when `packet` has exactly `expected` bytes.
std::string CheckLength(ByteSpan packet, std::size_t expected);

bool IsZero(ByteSpan bytes);

}  // namespace brennix
