// Finds the control units on the bus and reads what they say of themselves. Sends nothing but
// services that read: TesterPresent, DiagnosticSessionControl for the default session,
// ReadDataByIdentifier and ReadDTCInformation.

#ifndef TOOLS_DPDU_SCAN_SCAN_H
#define TOOLS_DPDU_SCAN_SCAN_H

#include <string>
#include <vector>

#include "console/failure.h"
#include "pdu/modules.h"
#include "scan/plan.h"

namespace dpdu {

struct ScanResult {
    ScanMethod method = ScanMethod::kLinks;  // the one used
    std::vector<FoundUnit> units;            // by response identifier, short ones first
    std::string end;                         // why the scan ended early; empty: it is complete
    ExitCode code = ExitCode::kOk;           // what that reason amounts to
};

// An interruption, a lost module or any other failure ends it early, with what was found so far.
ScanResult Scan(const ConnectedModule& module, const ScanOptions& options);

}  // namespace dpdu

#endif  // TOOLS_DPDU_SCAN_SCAN_H
