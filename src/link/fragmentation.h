#pragma once

#include "link/packet_queue.h"

namespace tarvik {

void FragInit();    // at library load, once per process
void FragDeinit();  // at unload

// Queues a packet for sending, in fragments if it is longer than the MTU. True: `packet` is empty.
// False: it still belongs to the caller.
bool FragSendPacket(DeviceQueues* queues, PacketPtr& packet);

// Takes in a received packet. True: `complete` is the packet itself if it is not a fragment
// (`packet` is empty), or else the reassembled packet (`packet` still holds the fragment). False:
// not complete yet, or the fragment was refused; `packet` still holds it. `source` identifies the
// sender, and is not null. Each source has one receiving thread, and four packets under way at a
// time.
bool FragReceivePacket(const void* source, PacketPtr& packet, PacketPtr* complete);

// Drops the unfinished packets of a source whose connection and receiving thread have ended, so
// that the next connection does not continue them.
void FragForget(const void* source);

}  // namespace tarvik
