#pragma once

#include "objects/com_primitive.h"
#include "objects/link_record.h"

namespace tarvik {

// One functional request to all control units of the table, two or more, and their answers.
void RunMultiRequest(LinkRecord* link, ComPrimitive* cop,
                     const PDU_UNIQUE_RESP_ID_TABLE_ITEM& table);

}  // namespace tarvik
