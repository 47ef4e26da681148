// Configures which control units a link talks to.

#ifndef TOOLS_DPDU_LINKS_UNIQUE_RESPONSE_TABLE_H
#define TOOLS_DPDU_LINKS_UNIQUE_RESPONSE_TABLE_H

#include <vector>

#include "pdu/link_handles.h"
#include "pdu/session.h"
#include "uds/ecu_address.h"

namespace dpdu {

// Sets a table with one entry per control unit; its unique response identifier is the index in
// `ecus`. Throws Failure if the library refuses.
void SetUniqueResponseTable(const Session& session, const LinkHandles& link,
                            const std::vector<EcuAddress>& ecus);

}  // namespace dpdu

#endif  // TOOLS_DPDU_LINKS_UNIQUE_RESPONSE_TABLE_H
