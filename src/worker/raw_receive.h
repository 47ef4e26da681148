#pragma once

#include "objects/com_primitive.h"
#include "objects/link_record.h"

// Reception of raw CAN frames: a thread, CommReceiveFunc, for each PDU_COPT_SENDRECV of a raw link.
// Everything here is called by the link's worker.
namespace tarvik {

// Starts the thread of this ComPrimitive, after the one that has received so far was told to stop.
void StartRawReception(LinkRecord* link, ComPrimitive* cop);

// Part of the link's clean-up: tells the thread of this ComPrimitive to stop and waits until it has
// ended, however long a callback of the application takes. PDUDestruct bounds this: a thread that
// then outlasts its time is terminated, and the one that makes the call goes on by itself.
void StopRawReception(LinkRecord* link, ComPrimitive* cop);

}  // namespace tarvik
