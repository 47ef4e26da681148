#pragma once

#include "link/packet.h"

// What both carriers do with packets, on arrival and before sending.
namespace tarvik {

// Handles a packet as received. Receive thread.
void DispatchCloudPacket(PacketPtr packet);

// The next packet to send: sealed, traced and counted. Empty if none came within 50 ms, or if it is
// too long to be sealed. Transmit thread.
PacketPtr NextCloudPacket();
// Takes back a packet that could not be sent. Deliberate: it stays sealed, goes to the queue's
// tail, and is sealed again by the next session. One that is then too long is dropped.
void PutBackCloudPacket(PacketPtr packet);

}  // namespace tarvik
