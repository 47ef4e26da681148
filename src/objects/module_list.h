#pragma once

#include "dpdu_types.h"

namespace tarvik {

// The item of PDUGetModuleIds: an entry for every present module. Takes the module lock. Null:
// memory is out.
PDU_MODULE_ITEM* MakeModuleItem();

}  // namespace tarvik
