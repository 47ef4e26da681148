#pragma once

#include "objects/com_primitive.h"
#include "objects/link_record.h"

// Reception of raw CAN frames: a thread, CommReceiveFunc, for each PDU_COPT_SENDRECV of a raw link.
// Everything here is called by the link's worker.
namespace tarvik {

// Asks the thread that has received so far to stop, then starts the one of this ComPrimitive.
void StartRawReception(LinkRecord* link, ComPrimitive* cop);

// Part of the link's clean-up: asks the thread of this ComPrimitive to stop and waits until it has
// ended, however long a callback of the application takes. During PDUDestruct the wait is limited:
// a thread that takes longer is terminated, or left to itself where the system cannot do that, and
// the thread that calls PDUDestruct is left alone.
void StopRawReception(LinkRecord* link, ComPrimitive* cop);

}  // namespace tarvik
