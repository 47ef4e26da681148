#pragma once

// A dongle inside the process. It answers as a script of bytes says, on a thread of its own.

#include <cstdint>

#include "fuzz/fuzz_input.h"

namespace tarvik::fuzz {

// Registers the only transport, which reports two modules: the dongle, and one without queues.
void RegisterPeer();
// What the dongle does from now on: one byte for each packet, and those that the answer needs.
void SetPeerScript(Bytes script);

}  // namespace tarvik::fuzz
