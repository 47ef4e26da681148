// Whether the library in use is this project's. Some of what it reports is documented to be
// constant, or not what it seems.

#ifndef TOOLS_DPDU_PDU_OWN_LIBRARY_H
#define TOOLS_DPDU_PDU_OWN_LIBRARY_H

#include "pdu/modules.h"

namespace dpdu {

// By the name that its version data give.
bool IsOwnLibrary(const ConnectedModule& module);

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_OWN_LIBRARY_H
