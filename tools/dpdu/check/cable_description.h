// Checks a cable description file.

#ifndef TOOLS_DPDU_CHECK_CABLE_DESCRIPTION_H
#define TOOLS_DPDU_CHECK_CABLE_DESCRIPTION_H

#include <string>

#include "doctor/finding.h"

namespace dpdu::check {

void CheckCableDescription(const std::string& path, Findings* findings);

}  // namespace dpdu::check

#endif  // TOOLS_DPDU_CHECK_CABLE_DESCRIPTION_H
