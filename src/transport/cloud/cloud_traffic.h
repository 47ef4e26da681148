#pragma once

#include "link/packet.h"

// What both carriers do with packets: on arrival, and before they leave.
namespace tarvik {

// Around the loop of the receive thread, and its condition: false once the connection is to end, or
// has ended under the thread while a callback of the application ran on it.
void BeginReceiving();
bool GoesOnReceiving();
void EndReceiving();

// A packet as it came off the wire. The receive thread.
void DispatchCloudPacket(PacketPtr packet);

// The next packet to put on the wire, sealed, traced and counted; empty when none came within
// 50 ms. The transmit thread.
PacketPtr NextCloudPacket();
// A packet that could not be sent. Deliberate: it stays sealed, and goes to the queue's tail.
void PutBackCloudPacket(PacketPtr packet);

}  // namespace tarvik
