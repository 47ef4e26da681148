// Two ways to find out which control units answer TesterPresent. Both throw Failure on an
// interruption and when the module is lost; what was found until then stays in the list.

#ifndef TOOLS_DPDU_SCAN_PROBE_H
#define TOOLS_DPDU_SCAN_PROBE_H

#include <vector>

#include "pdu/modules.h"
#include "scan/plan.h"

namespace dpdu {

// Sends single frames and receives every answer, whatever its identifier. Control units that have
// answered are asked again alone, to know which request identifier is theirs.
void ProbeWithFrames(const ConnectedModule& module, const ScanOptions& options,
                     std::vector<FoundUnit>* units);

// Uses links with the usual response identifiers only.
void ProbeWithLinks(const ConnectedModule& module, const ScanOptions& options,
                    std::vector<FoundUnit>* units);

}  // namespace dpdu

#endif  // TOOLS_DPDU_SCAN_PROBE_H
