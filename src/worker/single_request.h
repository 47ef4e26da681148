#pragma once

#include "objects/com_primitive.h"
#include "objects/link_record.h"

namespace tarvik {

// Sends one physical request and waits for its answer, up to ten times while the answer matches no
// expected response. `table` has at most one entry; its identifiers override the global ones.
void RunSingleRequest(LinkRecord* link, ComPrimitive* cop,
                      const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table);

}  // namespace tarvik
