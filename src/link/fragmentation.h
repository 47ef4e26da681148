#pragma once

#include "link/packet_queue.h"

namespace tarvik {

void FragInit();    // at library load, once per process
void FragDeinit();  // at unload

// Queues a packet for sending, in fragments where it is longer than the MTU. True: the packet is
// taken and `packet` is empty. False: it is still the caller's.
bool FragSendPacket(DeviceQueues* queues, PacketPtr& packet);

// Passes a received packet on. True with `complete` set: `packet` itself if it is no fragment
// (then `packet` is empty), or the reassembled packet (then `packet` still holds the fragment).
// False: nothing complete yet, or the fragment was refused; `packet` still holds it.
// `source` names the sender of the fragments: one receiving thread each.
bool FragReceivePacket(const void* source, PacketPtr& packet, PacketPtr* complete);

// Drops the unfinished packets of a source whose connection has ended, so that the next connection
// does not go on with them. The source's receiving thread has ended.
void FragForget(const void* source);

}  // namespace tarvik
