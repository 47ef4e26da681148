#pragma once

#include "link/packet.h"

namespace tarvik::test {

// The next WaitForPacket returns this packet at once, whatever it waits for.
void HandToNextWait(PacketPtr packet);

}  // namespace tarvik::test
