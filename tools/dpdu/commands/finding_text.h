// Findings as rows of a table and as JSON.

#ifndef TOOLS_DPDU_COMMANDS_FINDING_TEXT_H
#define TOOLS_DPDU_COMMANDS_FINDING_TEXT_H

#include "console/output.h"
#include "doctor/finding.h"

namespace dpdu {

void PrintFindings(const Findings& findings, Output* output);
Json FindingsJson(const Findings& findings);

// The doctor's, with what follows and what to do on lines of their own.
void PrintDiagnoses(const Findings& findings, Output* output);
Json DiagnosesJson(const Findings& findings);

std::size_t CountOf(Verdict verdict, const Findings& findings);

}  // namespace dpdu

#endif  // TOOLS_DPDU_COMMANDS_FINDING_TEXT_H
