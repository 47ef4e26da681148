#pragma once

#include "objects/com_primitive.h"
#include "objects/link_record.h"

namespace tarvik {

// Executes a PDU_COPT_SENDRECV on the worker thread, from PDU_COPST_EXECUTING to its final state.
// On a raw link that state is reached at once, and a receive thread goes on delivering frames.
void ExecuteSendRecv(LinkRecord* link, ComPrimitive* cop);

}  // namespace tarvik
