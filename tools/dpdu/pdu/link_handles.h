// A link of a module.

#ifndef TOOLS_DPDU_PDU_LINK_HANDLES_H
#define TOOLS_DPDU_PDU_LINK_HANDLES_H

#include "dpdu_types.h"

namespace dpdu {

// The handles that most functions of a link take.
struct LinkHandles {
    UNUM32 module = PDU_HANDLE_UNDEF;
    UNUM32 link = PDU_HANDLE_UNDEF;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_LINK_HANDLES_H
