// Reads what a found control unit says of itself.

#ifndef TOOLS_DPDU_SCAN_UNIT_READER_H
#define TOOLS_DPDU_SCAN_UNIT_READER_H

#include "pdu/modules.h"
#include "scan/plan.h"

namespace dpdu {

// Fills in the rest of the unit, which must have a request identifier. Throws Failure on an
// interruption and when the module is lost; what was read until then stays.
void ReadUnit(const ConnectedModule& module, const ScanOptions& options, FoundUnit* unit);

// The number of requests that ReadUnit sends, for progress.
std::size_t RequestsOfAUnit(const ScanOptions& options);

}  // namespace dpdu

#endif  // TOOLS_DPDU_SCAN_UNIT_READER_H
