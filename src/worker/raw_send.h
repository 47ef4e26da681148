#pragma once

#include "objects/com_primitive.h"
#include "objects/link_record.h"

namespace tarvik {

// Executes a PDU_COPT_STARTCOMM of a raw link: sends one CAN frame and reports nothing.
void ExecuteRawStartComm(LinkRecord* link, const ComPrimitive& cop);

}  // namespace tarvik
