#pragma once

#include "objects/com_primitive.h"
#include "objects/link_record.h"

namespace tarvik {

// One physical request and its answer, repeated at most ten times while the answer matches no
// expected response. `table` has at most one entry; its identifiers override the global ones.
void RunSingleRequest(LinkRecord* link, ComPrimitive* cop,
                      const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table);

}  // namespace tarvik
