#pragma once

#include "objects/com_primitive.h"
#include "objects/link_record.h"

namespace tarvik {

// Executes a PDU_COPT_SENDRECV on the worker thread, from PDU_COPST_EXECUTING to its final state,
// which one on a raw link reaches at once, while its receive thread goes on delivering frames.
void ExecuteSendRecv(LinkRecord* link, ComPrimitive* cop);

}  // namespace tarvik
