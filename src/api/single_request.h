#pragma once

#include "api/com_primitives.h"
#include "api/link_record.h"

namespace tarvik {

// One physical request and its one answer, sent again while the answer matches nothing, at most
// ten times. `table` has at most one entry, whose identifiers win over the global ones.
void RunSingleRequest(LinkRecord* link, ComPrimitive* cop,
                      const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table);

// The response time-out that the dongle is told.
std::uint32_t ResponseTimeoutMs();

}  // namespace tarvik
