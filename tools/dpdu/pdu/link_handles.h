// The handles of a link and its module.

#ifndef TOOLS_DPDU_PDU_LINK_HANDLES_H
#define TOOLS_DPDU_PDU_LINK_HANDLES_H

#include "dpdu_types.h"

namespace dpdu {

// Most functions for a link take both.
struct LinkHandles {
    UNUM32 module = PDU_HANDLE_UNDEF;
    UNUM32 link = PDU_HANDLE_UNDEF;
};

}  // namespace dpdu

#endif  // TOOLS_DPDU_PDU_LINK_HANDLES_H
